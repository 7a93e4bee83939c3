#!/bin/bash
# Finds the interpreters that the module can be built for:  tools/pythons.sh [--default]
#
# Prints one "VERSION PATH" line per minor version from 3.9 on, oldest first, "3.11d" being
# that of a debug build; --default prints only the one to build for: 3.9, else the newest that
# is no debug build.  An interpreter counts when it really runs (a name on PATH may be a version
# manager's shim that only says where others are) and has its headers and the global lock.  For
# its own version the system's python3 is preferred, unless KEYLINE_PYTHON names another, which
# then also is the default.

set -uo pipefail
shopt -s nullglob

probe='
import os, sys, sysconfig
header = os.path.join(sysconfig.get_path("include"), "Python.h")
if (sys.version_info >= (3, 9) and sys.implementation.name == "cpython"
        and not sysconfig.get_config_var("Py_GIL_DISABLED") and os.path.exists(header)):
    debug = "d" if hasattr(sys, "gettotalrefcount") else ""
    print("%d.%d" % sys.version_info[:2] + debug, sys.executable)
'
free_threaded='import sys, sysconfig; sys.exit(not sysconfig.get_config_var("Py_GIL_DISABLED"))'

# In the order of preference; the first that answers for a version is the one.
candidates()
{
    local dir
    if [ -n "${KEYLINE_PYTHON:-}" ]; then
        command -v "$KEYLINE_PYTHON"
        [ "$1" != --default ] || return
    fi
    printf '%s\n' /usr/bin/python3
    for dir in "${PYENV_ROOT:-}" "${HOME:-}/.pyenv"; do
        [ -n "$dir" ] || continue
        printf '%s\n' "$dir"/versions/3.{9,[1-9][0-9]}*/bin/python3.{9,[1-9][0-9]}{,d} | sort -rV
    done
    IFS=: read -ra dirs <<< "${PATH:-}"
    for dir in "${dirs[@]}"; do
        printf '%s\n' "$dir"/python3.{9,[1-9][0-9]}{,d,-dbg} "$dir"/python3
    done
}

declare -A found seen
while read -r candidate; do
    [ -x "$candidate" ] || continue
    real=$(readlink -f "$candidate")
    # The version that the file's name promises need not be asked for again; of a debug build
    # the folder's name may tell.
    name=${real##*/python}
    [[ $real != *debug* ]] || name=''
    if [ -n "${seen[$real]:-}" ] || [ -n "${found[${name:-none}]:-}" ]; then
        continue
    fi
    seen[$real]=yes
    read -r version path < <("$candidate" -I -S -c "$probe" 2> /dev/null < /dev/null) || continue
    [ -n "${found[$version]:-}" ] || found[$version]=$path
    [ "${1:-}" != --default ] || [ "$version" != 3.9 ] || break
done < <(candidates "${1:-}")

list=$(for version in "${!found[@]}"; do printf '%s %s\n' "$version" "${found[$version]}"; done |
    sort -k 1,1V)
if [ -z "$list" ]; then
    if [ -n "${KEYLINE_PYTHON:-}" ]; then
        if "$KEYLINE_PYTHON" -I -S -c "$free_threaded" > /dev/null 2>&1 < /dev/null; then
            echo "tools/pythons.sh: KEYLINE_PYTHON, $KEYLINE_PYTHON, is free-threaded; the module" \
                "needs an interpreter with the global lock" >&2
            exit 1
        fi
        wanted="KEYLINE_PYTHON, $KEYLINE_PYTHON, is no"
    else
        wanted="there is no"
    fi
    echo "tools/pythons.sh: $wanted python3 from 3.9 on that runs and has its headers" >&2
    exit 1
fi
if [ "${1:-}" = --default ]; then
    case $list in
    '3.9 '*) head -n 1 <<< "$list" ;;
    *) { grep -v '^[0-9.]*d ' <<< "$list" || printf '%s\n' "$list"; } | tail -n 1 ;;
    esac
else
    printf '%s\n' "$list"
fi
