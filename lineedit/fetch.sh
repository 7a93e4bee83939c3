#!/bin/bash
# Obtains the line editor's archive:  lineedit/fetch.sh FOLDER
#
# Prints the path of a file with the checksum that is pinned in archive.sha256: the one that
# KEYLINE_LIBEDIT_ARCHIVE names, the one in FOLDER or in build/editor/archive, or that of the
# distribution's source package, which is downloaded to FOLDER.  The package is searched for in
# this machine's apt sources, in either format, and if these have another version, on the same
# mirrors in the suites that are known to have it.  Of the machine's apt only sources, keys and
# network settings are used, and only read.
#
# Errors are reported on stderr; the output of the commands is in FOLDER/fetch.log.

set -uo pipefail
export LC_ALL=C

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
package=libedit
suites=(bookworm) # that have this version
read -r sum archive_name < "$here/archive.sha256"
version=${archive_name#"${package}_"}
version=${version%.orig.tar.gz}

die()
{
    printf 'lineedit/fetch.sh: %s\n' "$*" >&2
    exit 1
}

[ $# -eq 1 ] || die "usage: lineedit/fetch.sh FOLDER"
mkdir -p "$1" || die "cannot write to $1"
folder=$(cd "$1" && pwd)
archive=$folder/$archive_name
log=$folder/fetch.log
apt=$folder/apt # configuration and state of the apt that fetches

# Says where it was searched for, why that failed, and what helps.
give_up() # WHY
{
    local places
    places=$(sort -u "$apt/places" 2> /dev/null | awk '{ printf "%s%s", sep, $0; sep = ", " }')
    rm -rf "$apt"
    die "cannot fetch $archive_name, of the source package $package $version: $1" \
        "(looked in: ${places:-nowhere}; log: $log). Add a package source that has it," \
        "or get the file another way: KEYLINE_LIBEDIT_ARCHIVE=FILE takes it."
}

# --- The package sources -----------------------------------------------------------------

# Writes the machine's apt sources as sources of source packages; with a suite, that suite
# replaces theirs, in sources that have suites.
write_sources() # [SUITE]
{
    local suite=${1:-} LIST='' PARTS='' file
    eval "$(apt-config shell LIST Dir::Etc::sourcelist/f PARTS Dir::Etc::sourceparts/d)"
    rm -rf "$apt/parts"
    mkdir -p "$apt/parts"
    for file in "$LIST" "$PARTS"/*.list; do
        [ ! -f "$file" ] ||
            sed -nE '/cdrom:/d; s/^[[:space:]]*deb(-src)?[[:space:]]/deb-src /p' "$file"
    done |
        if [ -n "$suite" ]; then # deb-src [OPTIONS] URI SUITE COMPONENT...
            sed -nE "s#^(deb-src +(\[[^]]*\] *)?[^ ]+) +[^ ]*[^ /]( |\$)#\1 $suite\3#p"
        else
            cat
        fi | sort -u > "$apt/sources.list"
    for file in "$PARTS"/*.sources; do
        [ ! -f "$file" ] || awk -v suite="$suite" '
            /^[^ \t#]/ { inside = 0 }
            tolower($1) == "types:" { print "Types: deb-src"; inside = 1; next }
            tolower($1) == "suites:" && suite != "" && !/\/[ \t]*$/ {
                print "Suites: " suite; inside = 1; next }
            !inside || /^$/' "$file" > "$apt/parts/${file##*/}"
    done
}

configure_apt()
{
    rm -rf "$apt"
    mkdir -p "$apt/parts" "$apt/lists/partial" "$apt/cache/archives/partial" "$apt/got" &&
        cat > "$apt/apt.conf" << END
Dir::Etc::sourcelist "$apt/sources.list";
Dir::Etc::sourceparts "$apt/parts";
Dir::State "$apt";
Dir::State::lists "$apt/lists";
Dir::State::status "/var/lib/dpkg/status";
Dir::Cache "$apt/cache";
Dir::Log "$apt";
APT::Sandbox::User "$(id -un)";
#clear APT::Update::Pre-Invoke;
#clear APT::Update::Post-Invoke;
#clear APT::Update::Post-Invoke-Success;
Acquire::Languages "none";
Acquire::Retries "1";
Acquire::http::Timeout "30";
Acquire::https::Timeout "30";
END
}

# --- The package -------------------------------------------------------------------------

# The full versions that the sources offer.
offered()
{
    apt-cache -c "$apt/apt.conf" showsrc "$package" 2> /dev/null |
        sed -n 's/^Version: //p' | sort -Vu
}

# Prints the version to fetch. If a source cannot be reached, another one may have it.
look() # [SUITE]
{
    write_sources "$@"
    apt-get -c "$apt/apt.conf" update --print-uris 2>> "$log" |
        sed -nE "s#^'([^']*)/dists/(.*)/InRelease'.*#\1 \2#p" >> "$apt/places"
    apt-get -c "$apt/apt.conf" update >> "$log" 2>&1
    offered | sed -n "/^\([0-9]*:\)\?$version-/p" | tail -n 1 | grep .
}

fetch()
{
    local suite full='' others
    command -v apt-get > /dev/null || give_up "there is no apt-get here"
    configure_apt || die "cannot write to $apt"
    : > "$log"
    full=$(look)
    others=$(offered | tr '\n' ' ')
    for suite in "${suites[@]}"; do
        [ -z "$full" ] || break
        full=$(look "$suite")
    done
    if [ -z "$full" ]; then
        find "$apt/lists" -maxdepth 1 -name '*Release' | grep -q . ||
            give_up "no package source answered; is there a network?"
        give_up "no package source has it${others:+, only ${others% }}"
    fi
    (cd "$apt/got" && apt-get -c "$apt/apt.conf" source --download-only --only-source \
        "$package=$full") >> "$log" 2>&1 || give_up "the download of $full failed"
    [ -f "$apt/got/$archive_name" ] || give_up "$full does not contain it"
    check_sum "$apt/got/$archive_name"
    cp "$apt/got/$archive_name" "$archive.new" && mv "$archive.new" "$archive" && rm -rf "$apt"
}

check_sum() # FILE
{
    local found
    found=$(sha256sum < "$1") || die "cannot read $1"
    [ "${found%% *}" = "$sum" ] ||
        die "$1 has SHA-256 ${found%% *}, not $sum as pinned in lineedit/archive.sha256"
}

if [ -n "${KEYLINE_LIBEDIT_ARCHIVE:-}" ]; then
    archive=$KEYLINE_LIBEDIT_ARCHIVE
    [ -f "$archive" ] || die "KEYLINE_LIBEDIT_ARCHIVE names $archive, which is no file"
elif [ ! -f "$archive" ]; then
    shared=$here/../build/editor/archive/$archive_name # ./demo and ./check put it there
    if [ -f "$shared" ]; then
        archive=$shared
    else
        fetch < /dev/null
    fi
fi
check_sum "$archive"
printf '%s\n' "$archive"
