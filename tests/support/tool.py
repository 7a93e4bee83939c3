"""A script of tools/ that has no ending, as a module: for tests of its functions."""
import importlib.machinery
import importlib.util
import os

from script import ROOT


def tool(name):
    """The module that tools/NAME is."""
    path = os.path.join(ROOT, "tools", name)
    loader = importlib.machinery.SourceFileLoader(name, path)
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(name, loader))
    loader.exec_module(module)
    return module
