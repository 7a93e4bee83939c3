#!/bin/bash
# Builds the fuzzers:  fuzzing/build.sh OUTDIR
#
# OUTDIR/keys_fuzz is that of the editor with the module's parts, over the editor's flavour
# `fuzz` in OUTDIR/editor; OUTDIR/watch_fuzz that of the log watch library. Needs clang with
# libFuzzer. Run them as
#   OUTDIR/keys_fuzz -dict=fuzzing/keys.dict -max_len=600 -timeout=20 -close_fd_mask=3 CORPUS
#   OUTDIR/watch_fuzz -max_len=300 -timeout=20 CORPUS
# KEYS_FUZZ_PRINT=1 tells the keys and events of an input, WATCH_FUZZ_PRINT=1 the operations.

set -euo pipefail
[ $# -eq 1 ] || { echo "usage: fuzzing/build.sh OUTDIR" >&2; exit 1; }

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
mkdir -p "$1"
out=$(cd "$1" && pwd)
compiler=(clang)
# shellcheck source=lineedit/join.sh
. "$here/../lineedit/join.sh"

sanitizers=(-g -O1 -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64
    "-fsanitize=address,undefined,fuzzer" -fno-sanitize-recover=undefined
    -fno-omit-frame-pointer -Wall -Wextra -Wshadow)

clang++ -std=c++17 "${sanitizers[@]}" -D_GNU_SOURCE \
    "$here"/watch_{fuzz,files,model}.cpp "$here"/../vantor/*.cpp -o "$out/watch_fuzz"

"$here/../lineedit/build.sh" fuzz "$out/editor"
editor=$out/editor/fuzz
flags=("${sanitizers[@]}" -I"$editor/include")

# The invariants are checked inside the editor, before its inner names are made local: some of
# them are the module's, too.
"${compiler[@]}" "${flags[@]}" -Wno-unused-parameter -I"$editor/include/private" \
    -c "$here/editor_state.c" -o "$out/editor_state.o"
join_objects "$out/editor.o" "$out/editor_state.o" "$editor/lib/private/libedit.a"
hide_inner_names "$out/editor.o"

clang++ -std=c++17 "${flags[@]}" "$here"/{keys_fuzz,module_part,screen,terminal_stub}.cpp \
    "$here"/../tests/display/{display_check,naive_layout}.cpp \
    "$here"/../tests/display/terminal_{cells,model,resize,rows,type}.cpp \
    "$here"/../Cli/{base,history,history_index,history_store,keys}.cpp "$out/editor.o" -ltinfo -ldl \
    -o "$out/keys_fuzz"
