"""Uses of the module for a type checker to judge; never run. See test_types.py."""
import os
from typing import List, Optional

import Keyline


def complete(key: bytes, line: str) -> Optional[str]:
    return line + "ow" if key == b"\t" else None


def news(descriptor: int, length: int) -> int:
    return len(os.read(descriptor, length))


def silent_news(descriptor: int, length: int) -> None:
    os.read(descriptor, length)


def text_key(key: str, line: str) -> Optional[str]:
    return key + line


def with_position(line: str, position: int, key: bytes) -> Optional[str]:
    return None


def answers_bytes(key: bytes, line: str) -> bytes:
    return key


def right() -> List[str]:
    line: str = Keyline.readline("> ")
    line += Keyline.readline("> ", complete)
    line += Keyline.readline("> ", None, "exec")
    line += Keyline.readline("> ", complete, "exec", "").strip()
    line += Keyline.readline("> ", lambda key, line: line.upper())
    line += Keyline.simpleReadline("> ")
    Keyline.newHistoryMode("exec", "")
    if Keyline.addHistory(line, "exec", "") and not Keyline.keyBindingsEnabled():
        Keyline.keyBindingsEnabledIs(True)
    Keyline.historyLimitIs(100)
    Keyline.TerminalWidthIs(80)
    Keyline.loggingSyncEnabledIs("log", news)
    Keyline.loggingSyncEnabledIs("log", silent_news)
    Keyline.loggingSyncEnabledIs("log", None)
    Keyline.loggingSyncEnabledIs("log")
    Keyline.clearHistory()
    Keyline.resetInput()
    Keyline.resetInput("ignored", 1)
    return Keyline.history() + Keyline.history("exec")


def wrong() -> None:
    Keyline.readline()  # error: call-arg
    Keyline.readline(b"> ")  # error: arg-type
    Keyline.readline(prompt="> ")  # error: call-arg
    Keyline.readline("> ", text_key)  # error: arg-type
    Keyline.readline("> ", with_position)  # error: arg-type
    Keyline.readline("> ", answers_bytes)  # error: arg-type
    Keyline.readline("> ", None, None)  # error: arg-type
    Keyline.readline("> ", None, "exec", "", "")  # error: call-arg
    Keyline.readline("> ").append("x")  # error: attr-defined
    Keyline.simpleReadline("> ", complete)  # error: call-arg
    Keyline.history(1)  # error: arg-type
    Keyline.newHistoryMode("exec")  # error: call-arg
    Keyline.addHistory("line", "exec")  # error: call-arg
    Keyline.addHistory("line", "exec", None)  # error: arg-type
    Keyline.clearHistory(1)  # error: call-arg
    Keyline.keyBindingsEnabledIs(1)  # error: arg-type
    Keyline.keyBindingsEnabledIs(enabled=True)  # error: call-arg
    Keyline.historyLimitIs("100")  # error: arg-type
    Keyline.TerminalWidthIs(None)  # error: arg-type
    Keyline.loggingSyncEnabledIs(None)  # error: arg-type
    Keyline.loggingSyncEnabledIs("log", complete)  # error: arg-type
    Keyline.loggingSyncEnabledIs("log", answers_bytes)  # error: arg-type
    Keyline.resetInput(user="next")  # error: call-arg
    Keyline.completionEnabledIs(True)  # error: attr-defined
