#!/bin/bash
# Builds one flavour of the adapted line editor:  lineedit/build.sh [--ask] FLAVOUR OUTDIR
#
# Writes OUTDIR/FLAVOUR/{lib,include}/ from the distribution's source package, or from the
# file that KEYLINE_LIBEDIT_ARCHIVE names (either must have the checksum in archive.sha256),
# with the patches of `series` applied and the editor's own files replaced by those of src/.
# Does nothing when the flavour is up to date; with --ask the exit status says whether it is.
#
# CC, CPPFLAGS, CFLAGS and LDFLAGS in the environment are used as usual, after the flags of
# the flavour, so that they take precedence.  Another compiler makes a new build.
#
# lib/libedit.a exports the editor's interface only: its internal names, some of which the
# module uses for its own functions, are local.  For tests of the internals, lib/private/ has
# the same library with all names, and include/private/ the internal headers.
#
# Errors are reported in one sentence on stderr; the output of the commands is in a log.

set -euo pipefail
export LC_ALL=C

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
package=libedit
read -r sum archive_name < "$here/archive.sha256"
version=${archive_name#"${package}_"}
version=${version%.orig.tar.gz}
# shellcheck source=lineedit/join.sh
. "$here/join.sh"

die()
{
    printf 'lineedit/build.sh: %s\n' "$*" >&2
    exit 1
}

# --- What is asked for ---------------------------------------------------------------

ask=no
[ "${1:-}" != --ask ] || { ask=yes && shift; }
[ $# -eq 2 ] ||
    die "usage: lineedit/build.sh [--ask] plain|asan|fuzz|coverage OUTDIR"
flavour=$1

read -ra compiler <<< "${CC:-cc}"
case $flavour in
plain)
    cflags="-O2 -g -ffunction-sections -fdata-sections \
        -fstack-protector-strong -D_FORTIFY_SOURCE=2" ;;
asan)
    cflags="-O1 -g -fsanitize=address,undefined -fno-omit-frame-pointer" ;;
fuzz) # with a lower line limit, or a few sessions would take all the time
    cflags="-O1 -g -fsanitize=address,fuzzer-no-link -fno-omit-frame-pointer \
        -DEL_MAXLINE=65536UL"
    compiler=(clang) ;;
coverage)
    cflags="-O0 -g --coverage" ;;
*)
    die "unknown flavour '$flavour' (plain, asan, fuzz or coverage)" ;;
esac
compiler_file=$(command -v "${compiler[0]}") ||
    die "flavour $flavour needs ${compiler[0]}, which is missing"

mkdir -p "$2/archive" "$2/$flavour" || die "cannot write to $2"
outdir=$(cd "$2" && pwd)
target=$outdir/$flavour
log=$target/build.log
library=$target/lib/libedit.a

# 64-bit off_t and time_t on every machine, in this and in what it is linked with.
cflags="-D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64 $cflags"
if [ "$flavour" != fuzz ]; then # that uses another compiler
    case ${CPPFLAGS:-}${CFLAGS:-} in
    *_FORTIFY_SOURCE*) cflags=${cflags/-D_FORTIFY_SOURCE=2/} ;;
    esac
    cflags+=" ${CPPFLAGS:-} ${CFLAGS:-}"
fi
cflags+=" -fPIC"
# Reproducible: the library that is shipped contains no path of the build.
[ "$flavour" != plain ] || cflags+=" -ffile-prefix-map=$outdir=editor"
read -rd '' -a cflags <<< "$cflags" || true
read -rd '' -a ldflags <<< "${LDFLAGS:-}" || true

patches=()
while read -r name _; do
    case $name in '' | '#'*) continue ;; esac
    [ -f "$here/patches/$name" ] || die "series names $name, which is not in patches/"
    patches+=("$here/patches/$name")
done < "$here/series"
shopt -s nullglob
own=("$here"/src/*.[ch])

# --- The build -----------------------------------------------------------------------

# Copies a file if it differs, so that nothing is compiled again without need.
put() # FILE DESTINATION
{
    cmp -s "$1" "$2" || install -D -m 644 "$1" "$2"
}

unpack_and_patch()
{
    local patch
    rm -rf "$target/src" "$target/stamp"
    mkdir "$target/src"
    tar -xzf "$archive" -C "$target/src" --strip-components=1 > "$log" 2>&1 ||
        die "cannot unpack $archive (log: $log)"
    for patch in "${patches[@]}"; do
        printf '== %s\n' "${patch##*/}" >> "$log"
        patch -d "$target/src" -p1 --fuzz=0 -s --batch --no-backup-if-mismatch \
            < "$patch" >> "$log" 2>&1 ||
            die "lineedit/patches/${patch##*/} does not apply to $package $version (log: $log)"
    done
    [ ${#own[@]} -eq 0 ] || cp "${own[@]}" "$target/src/src/"
}

# The whole library as one object.
join_library() # OBJECT
{
    local flag how=()
    case " ${cflags[*]}" in
    *' -flto'*)
        # Link-time optimization happens here, with the given flags and linker.
        for flag in "${ldflags[@]}"; do
            case $flag in -fuse-ld=* | -B*) how+=("$flag") ;; esac
        done
        [ ${#how[@]} -ne 0 ] || how=("-Wl,--force-group-allocation")
        case $("${compiler[@]}" --version) in
        *'Free Software'*) how+=(-flinker-output=nolto-rel) ;;
        esac
        "${compiler[@]}" "${cflags[@]}" "${how[@]}" -r -nostdlib -o "$1" src/*.o &&
            rm -f src/.libs/libedit.a &&
            "$(tool ar)" rcsD src/.libs/libedit.a "$1"
        ;;
    *)
        join_objects "$1" src/.libs/libedit.a
        ;;
    esac
}

compile()
{
    cd "$target/src"
    # Leaks must not make configure's sanitized tests fail, and the build must not run the
    # autotools when a patch changes their input.
    ASAN_OPTIONS=detect_leaks=0 ./configure --disable-shared --enable-static \
        --disable-examples --disable-dependency-tracking CC="${compiler[*]}" CPPFLAGS= \
        CFLAGS="${cflags[*]}" LDFLAGS="${ldflags[*]}" &&
        make -j2 -C src ACLOCAL=: AUTOCONF=: AUTOHEADER=: AUTOMAKE=: all &&
        join_library interface.o &&
        hide_inner_names interface.o &&
        rm -f interface.a &&
        "$(tool ar)" rcsD interface.a interface.o
}

flavour_hash()
{
    {
        printf '%s\n' "$sum" "$target" "${compiler[*]:1}" "${cflags[*]}" "${ldflags[*]}" \
            "${patches[@]##*/}" "${own[@]##*/}"
        readlink -f "$compiler_file"
        "${compiler[@]}" --version | head -n 1
        cat "${BASH_SOURCE[0]}" "$here/join.sh" "${patches[@]}" "${own[@]}"
    } | sha256sum
}

# One process at a time builds a flavour, and one fetches the archive for all of them.
exec 9> "$target/lock"
flock 9

if [ -n "${KEYLINE_LIBEDIT_ARCHIVE:-}" ]; then # report a wrong one also with nothing to build
    flock "$outdir/lock" "$here/fetch.sh" "$outdir/archive" > /dev/null
fi

hash=$(flavour_hash)
if [ -f "$library" ] && [ "$(cat "$target/stamp" 2> /dev/null)" = "$hash" ]; then
    # Up to date, but sources may be newer: touch the library for the build tool, which
    # compares timestamps. Not when another copy of the sources uses this OUTDIR.
    [[ $outdir != "${here%/*}"/* ]] ||
        [ -z "$(find "$here" -newer "$library" -print -quit)" ] || touch "$library"
    exit 0
fi
[ $ask = no ] || exit 1

said=$("$here/links.sh" c "${compiler[@]}" -- "${cflags[@]}" "${ldflags[@]}" 2>&1) || die "$said"

archive=$(flock "$outdir/lock" "$here/fetch.sh" "$outdir/archive")
unpack_and_patch
(compile) >> "$log" 2>&1 < /dev/null || die "$package does not compile (log: $log)"

put "$target/src/interface.a" "$library"
put "$target/src/src/.libs/libedit.a" "$target/lib/private/libedit.a"
put "$target/src/src/histedit.h" "$target/include/histedit.h"
put "$target/src/src/editline/readline.h" "$target/include/editline/readline.h"
for header in "$target"/src/config.h "$target"/src/src/*.h; do
    put "$header" "$target/include/private/${header##*/}"
done
touch "$library"
printf '%s\n' "$hash" > "$target/stamp"
