# Sourced by build.sh and fuzzing/build.sh, which name their compiler in the array `compiler`:
# how objects become one.
# shellcheck shell=bash

# A tool that works on what this compiler makes.
tool() # NAME
{
    # shellcheck disable=SC2154 # set by who sources this
    "${compiler[@]}" -print-prog-name="$1"
}

# One object of all in these.  Section groups become plain sections: of those that are left the
# linker would keep one that another object calls by its name, which is local then.
join_objects() # OBJECT FILE...
{
    "$(tool ld)" -r --force-group-allocation -o "$1" --whole-archive "${@:2}"
}

hide_inner_names() # OBJECT
{
    "$(tool objcopy)" --localize-hidden "$1"
}
