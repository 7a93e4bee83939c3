#!/bin/bash
# Builds the fuzzer of the editor with the module's parts:  fuzzing/build.sh OUTDIR
#
# Puts OUTDIR/keys_fuzz there, over the editor's flavour `fuzz` in OUTDIR/editor. Needs
# clang with libFuzzer. Run it as
#   OUTDIR/keys_fuzz -dict=fuzzing/keys.dict -max_len=600 -timeout=20 -close_fd_mask=3 CORPUS
# KEYS_FUZZ_PRINT=1 tells the keys and events of an input.

set -euo pipefail
[ $# -eq 1 ] || { echo "usage: fuzzing/build.sh OUTDIR" >&2; exit 1; }

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
mkdir -p "$1"
out=$(cd "$1" && pwd)
"$here/../lineedit/build.sh" fuzz "$out/editor"
editor=$out/editor/fuzz

flags=(-g -O2 "-fsanitize=address,undefined,fuzzer" -fno-sanitize-recover=undefined
    -fno-omit-frame-pointer -Wall -Wextra -Wshadow -I"$editor/include")

# What must hold is asked inside the editor, before its inner names are made local: some of
# them are the module's, too.
clang "${flags[@]}" -Wno-unused-parameter -I"$editor/include/private" \
    -c "$here/editor_holds.c" -o "$out/editor_holds.o"
ld -r -o "$out/editor.o" "$out/editor_holds.o" --whole-archive "$editor/lib/private/libedit.a"
objcopy --localize-hidden "$out/editor.o"

clang++ -std=c++17 "${flags[@]}" "$here"/*.cpp \
    "$here"/../Cli/{history,history_index,keys}.cpp "$out/editor.o" -ltinfo -ldl \
    -o "$out/keys_fuzz"
