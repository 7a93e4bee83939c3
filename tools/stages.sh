# Sourced by ./check: the stages and their lines, the tools for style, and the interpreters that
# all is built and tested for.
# shellcheck shell=bash

# shellcheck source=tools/house.sh
. "$(dirname "${BASH_SOURCE[0]}")/house.sh"

results=$root/build/results
failed=0

# Runs a command as a stage of that name: one line with the time taken, output to its log,
# exit status to its folder of results.  A stage that fails does not end the run.  Where
# `otherwise` says why it might, it does not count as failed.
stage() # NAME HEADING COMMAND...
{
    local name=$1 log=$logs/$1.log start=$EPOCHREALTIME status=0 word=ok
    printf '%-58s ' "$2"
    mkdir -p "$results/$name"
    "${@:3}" > "$log" 2>&1 < /dev/null || status=$?
    if [ "$status" -ne 0 ] && [ -n "${otherwise:-}" ]; then
        printf 'not looked at here: %s (log: %s)\n' "$otherwise" "$log"
        status=0
    else
        [ "$status" -eq 0 ] || word=FAILED
        awk -v word=$word -v a="$start" -v b="$EPOCHREALTIME" \
            'BEGIN { printf "%-6s %6.1f s\n", word, b - a }'
    fi
    printf '%s\n' "$status" > "$results/$name/status"
    if [ "$status" -ne 0 ]; then
        # shellcheck disable=SC2034 # it is for the caller
        failed=1
        tail -n 40 "$log" | sed 's/^/    /'
        printf '    log: %s\n' "$log"
    fi
    return "$status"
}

# The versions of the tools that judge style; others may disagree.
declare -A reference=([clang-format]=14 [clang-tidy]=14 [mypy]=1.0 [shellcheck]=0.9)

# Prints the path of a tool, of the reference's version if that is here.
tool() # NAME
{
    command -v "$1-${reference[$1]}" || command -v "$1"
}

# A stage that the tool judges.
style() # TOOL NAME HEADING COMMAND...
{
    local program version otherwise=''
    if ! program=$(tool "$1"); then
        printf '%-58s not looked at here: there is no %s; the reference is %s\n' \
            "$3" "$1" "${reference[$1]}"
        return
    fi
    version=$("$program" --version | grep -oE '[0-9]+(\.[0-9]+)+' | head -n 1)
    [[ $version. == "${reference[$1]}".* ]] ||
        otherwise="$1 $version disagrees, the reference is ${reference[$1]}"
    stage "${@:2}"
}

# Whether that version of Python, "3.11", or "3.11d" for a debug build, is one to test.
supported() # VERSION
{
    [[ $1 =~ ^3\.(9|1[0-5])d?$ ]]
}

# Sets `first`, the version built for by default, `others`, `system`, which is the system's own
# python, and `pythons` by version.
find_interpreters()
{
    local version python
    system=$(/usr/bin/python3 -I -S -c 'import sys; print("%d.%d" % sys.version_info[:2])')
    default_python
    first=$version
    declare -gA pythons=(["$first"]="$python")
    others=()
    while read -r version python; do
        if [ "$version" != "$first" ] && { [ "$version" = "$system" ] || supported "$version"; }; then
            pythons[$version]=$python
            others+=("$version")
        fi
    done < <("$root/tools/pythons.sh")
    for version in "$first" "${others[@]}"; do
        printf 'Python %s is %s\n' "$version" "${pythons[$version]}"
    done
}
