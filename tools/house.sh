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

# Prints the packages of the given groups, of all when none is given, that are not installed.
missing_packages() # [GROUP...]
{
    local group name wanted=()
    while read -r group name; do
        [[ $# -ne 0 && " $* " != *" $group "* ]] || wanted+=("$name")
    done < <(grep -v '^#' "$root/tools/packages")
    comm -23 <(printf '%s\n' "${wanted[@]}" | sort -u) \
        <(dpkg-query -W -f '${db:Status-Abbrev}${Package}\n' "${wanted[@]}" 2> /dev/null |
            sed -n 's/^ii *//p' | sort)
}

# Installs what is missing, as root or through sudo, and says what.
install_packages() # GROUP...
{
    local missing as_root=()
    mapfile -t missing < <(missing_packages "$@")
    [ ${#missing[@]} -ne 0 ] || return 0

    if [ "$(id -u)" -ne 0 ]; then
        # Without a terminal, sudo must not wait for a password.
        as_root=(sudo)
        [ -z "${CI:-}" ] && { : < /dev/tty; } 2> /dev/null || as_root+=(-n)
        if ! command -v sudo > /dev/null || ! "${as_root[@]}" true 2> /dev/null; then
            die "packages are missing and this is neither root nor may it use sudo;" \
                "as root: apt-get install ${missing[*]}"
        fi
    fi
    printf 'installing with apt-get: %s\n' "${missing[*]}" >&2
    as_root+=(env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=120)
    local install=("${as_root[@]}" install -y --no-install-recommends "${missing[@]}")
    # The first try needs no network when the lists are there; fresh machines have none.
    "${install[@]}" > "$logs/install.log" 2>&1 < /dev/null ||
        { "${as_root[@]}" update && "${install[@]}"; } >> "$logs/install.log" 2>&1 < /dev/null ||
        die "cannot install ${missing[*]} (log: $logs/install.log)"
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
# uses a folder.
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
        # All is looked for anew; what is compiled stays, Ninja knows how it was.
        rm -rf "$folder/CMakeCache.txt" "$folder"/CMakeFiles/[0-9]* || return
        cmake -S "$root" -B "$folder" -G Ninja "-DKEYLINE_PYTHON=$interpreter" \
            "-DKEYLINE_EDITOR_DIR=$root/build/editor" "$@" || return
        printf '%s\n' "$how" > "$folder/configured"
    fi
    ninja -C "$folder" "$target"
)

mkdir -p "$logs" || die "cannot write to $root/build"
