#!/bin/bash
# Tries whether flags make a program:  lineedit/links.sh c|c++ COMPILER... -- FLAG...
#
# When they do not, one sentence on stderr tells why and what to do.  For link-time optimization
# the linker must know what the compiler writes, and not every installation has one that does.

set -uo pipefail
export LC_ALL=C

language=$1
shift
compiler=()
while [ $# -ne 0 ] && [ "$1" != -- ]; do
    compiler+=("$1") && shift
done
shift
folder=$(mktemp -d) || exit
trap 'rm -rf "$folder"' EXIT

makes_program() # FLAG...
{
    echo 'int main(void) { return 0; }' |
        "${compiler[@]}" "$@" -x "$language" - -o "$folder/program" > "$folder/said" 2>&1
}

makes_program "$@" && exit

reason=$(sed -n -e '/error:/{p;q}' -e '$p' "$folder/said" | head -n 1)
usual=() lto=no lld=no
for flag; do
    case $flag in
    -flto*) lto=yes ;;
    -fuse-ld=lld*) lld=yes && usual+=("$flag") ;;
    *) usual+=("$flag") ;;
    esac
done
version=$("${compiler[@]}" --version 2> /dev/null | sed -n 's/.*clang version \([0-9]*\).*/\1/p')
if [ $lld = yes ] && ! makes_program -fuse-ld=lld; then
    reason="LDFLAGS has -fuse-ld=lld, which is not here: install the package"
    reason+=" lld${version:+-$version}"
elif [ $lto = yes ] && makes_program "${usual[@]}"; then
    if [ -n "$version" ] && [ $lld = no ]; then
        reason="the linker does not know what clang writes for -flto: install the package"
        reason+=" lld-$version and put -fuse-ld=lld in LDFLAGS"
    elif [ -z "$version" ] && [ $lld = yes ]; then
        reason="lld does not know what ${compiler[*]} writes for -flto: leave -fuse-ld=lld out of LDFLAGS"
    fi
fi
printf '%s makes no program with these flags: %s\n' "${compiler[*]}" "$reason" >&2
exit 1
