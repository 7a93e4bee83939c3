"""The name of the wheel."""
import sys
import sysconfig

import pytest

import keyline_wheel


@pytest.mark.parametrize("kernel, bits, platform", [
    ("linux-x86_64", 64, "linux_x86_64"), ("linux-x86_64", 32, "linux_i686"),
    ("linux-i686", 32, "linux_i686"), ("linux-aarch64", 64, "linux_aarch64"),
    ("linux-aarch64", 32, "linux_armv8l"),
])
def test_the_platform_is_the_interpreters(monkeypatch, kernel, bits, platform):
    """Not the kernel's, which may run an installation of 32 bits."""
    monkeypatch.setattr(sysconfig, "get_platform", lambda: kernel)
    monkeypatch.setattr(sys, "maxsize", (1 << bits - 1) - 1)
    assert keyline_wheel.tag().endswith("-" + platform)
