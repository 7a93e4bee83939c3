"""The module's stub, parsed: its functions and its type aliases by name."""
import ast
import os

from script import ROOT

FOLDER = os.path.join(ROOT, "Cli")

with open(os.path.join(FOLDER, "Keyline.pyi"), encoding="utf-8") as file:
    BODY = ast.parse(file.read()).body
FUNCTIONS = {node.name: node for node in BODY if isinstance(node, ast.FunctionDef)}
ALIASES = {node.targets[0].id: node.value for node in BODY if isinstance(node, ast.Assign)}


def parameters(name):
    """The types of a function's arguments, and how many of them have to be given."""
    found = FUNCTIONS[name].args
    return ([ast.unparse(argument.annotation) for argument in found.posonlyargs],
            len(found.posonlyargs) - len(found.defaults))


def callback(name):
    """What a callable of that type is called with, and what it may answer."""
    arguments, answer = ALIASES[name].slice.elts
    return [ast.unparse(argument) for argument in arguments.elts], ast.unparse(answer)
