# Sourced by ./demo and ./check: packages, interpreters and build folders.  Everything here
# leaves standard input alone and is quick when nothing is to be done.
# shellcheck shell=bash

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
logs=$root/build/logs

die()
{
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

# Runs a command as a step: says on stderr what is done while it is done, and how long it took.
# Its own stderr follows when it failed; all its output goes to the log.
step() # LOG HEADING COMMAND...
{
    local start=$SECONDS status=0
    printf '%s ... ' "$2" >&2
    ("${@:3}") > "$1" 2> "$1.errors" < /dev/null || status=$?
    if [ $status -eq 0 ]; then
        printf '%s s\n' $((SECONDS - start)) >&2
    else
        printf 'failed\n' >&2
        cat "$1.errors" >&2
    fi
    cat "$1.errors" >> "$1"
    rm -f "$1.errors"
    return $status
}

# Prints the packages of the given groups, of all when none is given, that are not installed;
# "one|other" when neither is.
missing_packages() # [GROUP...]
{
    local group entry wanted=() names installed
    while read -r group entry; do
        [[ $group == '#' || $# -ne 0 && " $* " != *" $group "* ]] || wanted+=("$entry")
    done < "$root/tools/packages"
    IFS='| ' read -ra names <<< "${wanted[*]}"
    installed=$(dpkg-query -W -f '${db:Status-Abbrev}${Package}\n' "${names[@]}" 2> /dev/null |
        sed -n 's/^ii *//p')
    for entry in "${wanted[@]}"; do
        grep -qxE -e "${entry//+/[+]}" <<< "$installed" || printf '%s\n' "$entry"
    done | sort -u
}

# Sets `chosen` to the first package of each "one|other" that the machine's package sources
# have, and `lacking` to those of which they have none; the status tells whether there is one.
choose_packages() # ENTRY...
{
    local entry name names has
    IFS='| ' read -ra names <<< "$*"
    has=$(LC_ALL=C apt-cache policy "${names[@]}" 2> /dev/null |
        awk '/^[^ ]/ { name = $1 } $1 == "Candidate:" && $2 != "(none)" { printf " %s ", name }')
    chosen=()
    lacking=()
    for entry; do
        IFS='|' read -ra names <<< "$entry"
        for name in "${names[@]}"; do
            [[ $has != *" $name: "* ]] || break
        done
        [[ $has == *" $name: "* ]] && chosen+=("$name") || lacking+=("$entry")
    done
    [ ${#lacking[@]} -eq 0 ]
}

as_root=()
apt_get() # ARGUMENT...
{
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=120 "$@"
}

apt_install() # ENTRY...
{
    local chosen lacking
    # The first try needs no network when the lists are there; fresh machines have none.
    if choose_packages "$@" && apt_get install -y --no-install-recommends "${chosen[@]}"; then
        return
    fi
    apt_get update
    if ! choose_packages "$@"; then
        echo "no package source of this machine has ${lacking[*]//|/ or }" >&2
        return 1
    fi
    apt_get install -y --no-install-recommends "${chosen[@]}"
}

# Installs what is missing, as root or through sudo, and says what.
install_packages() # GROUP...
{
    local missing log=$logs/install.log
    mapfile -t missing < <(missing_packages "$@")
    [ ${#missing[@]} -ne 0 ] || return 0

    if [ "$(id -u)" -ne 0 ]; then
        # Without a terminal, sudo must not wait for a password.
        as_root=(sudo)
        [ -z "${CI:-}" ] && { : < /dev/tty; } 2> /dev/null || as_root+=(-n)
        if ! command -v sudo > /dev/null || ! "${as_root[@]}" true 2> /dev/null; then
            die "packages are missing and this is neither root nor may it use sudo;" \
                "as root: apt-get install ${missing[*]%%|*}"
        fi
    fi
    step "$log" "installing with apt-get: ${missing[*]%%|*}" apt_install "${missing[@]}" ||
        die "cannot install ${missing[*]%%|*} (log: $log)"
}

fetch() # ENTRY...
{
    local chosen lacking
    choose_packages "$@" || return
    mapfile -t chosen < <(printf '%s\n' "${chosen[@]}" | sort -u)
    apt-get -qq download "${chosen[@]}"
}

# Fetches packages and unpacks them side by side into the folder.
fetch_unpacked() # FOLDER ENTRY...
{
    rm -rf "$1" && mkdir -p "$1" && cd "$1" || return
    fetch "${@:2}" || { apt_get update && fetch "${@:2}"; } || return
    local package
    for package in *.deb; do
        dpkg -x "$package" . && rm "$package" || return
    done
    printf '%s\n' "${*:2}" > packages
}

# For tests: nothing of the machine changes.
unpack_packages()
{
    local names log=$logs/unpack.log folder=$root/build/unpacked
    mapfile -t names < <(sed -n 's/^unpack //p' "$root/tools/packages")
    [ "$(cat "$folder/packages" 2> /dev/null)" != "${names[*]}" ] || return 0
    step "$log" "fetching with apt-get: ${names[*]%%|*}" fetch_unpacked "$folder" "${names[@]}" ||
        die "cannot fetch ${names[*]%%|*} (log: $log)"
}

# Sets `version` and `python` to the interpreter that is built for by default.
default_python()
{
    local line
    line=$("$root/tools/pythons.sh" --default) || exit 1
    # shellcheck disable=SC2034 # they are for the caller
    read -r version python <<< "$line"
}

# Configures the folder unless that was done in the same way and with the same packages
# installed, and builds the target: what is installed later is found, too.  One build at a time
# uses a folder.  With asking=yes only the exit status tells whether there is nothing to do.
build() # FOLDER PYTHON TARGET CMAKE-OPTION...
(
    local folder=$1 interpreter=$2 target=$3 how
    shift 3
    [ -z "${KEYLINE_LIBEDIT_ARCHIVE:-}" ] ||
        set -- "$@" "-DKEYLINE_LIBEDIT_ARCHIVE=$(realpath "$KEYLINE_LIBEDIT_ARCHIVE")"
    how="$root $interpreter $* without $(missing_packages | tr '\n' ' ')"
    how+="with ${CC:-} ${CXX:-} ${CPPFLAGS:-} ${CFLAGS:-} ${CXXFLAGS:-} ${LDFLAGS:-}"

    mkdir -p "$folder" && exec 8> "$folder/lock" && flock 8 || return
    if [ ! -f "$folder/build.ninja" ] ||
        [ "$(cat "$folder/configured" 2> /dev/null)" != "$how" ]; then
        [ "${asking:-}" != yes ] || return 1
        # Configures from scratch.  What is compiled stays: Ninja knows with which flags.
        rm -rf "$folder/CMakeCache.txt" "$folder"/CMakeFiles/[0-9]* || return
        cmake -S "$root" -B "$folder" -G Ninja "-DKEYLINE_PYTHON=$interpreter" \
            "-DKEYLINE_EDITOR_DIR=$root/build/editor" "$@" || return
        printf '%s\n' "$how" > "$folder/configured"
    fi
    if [ "${asking:-}" = yes ]; then
        ninja -C "$folder" -n "$target" | grep -q 'no work to do'
        return
    fi
    ninja -C "$folder" "$target"
)

mkdir -p "$logs" || die "cannot write to $root/build"
