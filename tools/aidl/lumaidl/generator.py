# SPDX-License-Identifier: Apache-2.0
"""Makes the C++ of one document from the templates."""

import pathlib

import jinja2

from . import checker, syntax, types

_TEMPLATES = jinja2.Environment(
    loader=jinja2.FileSystemLoader(pathlib.Path(__file__).parent / "templates"),
    undefined=jinja2.StrictUndefined, trim_blocks=True, lstrip_blocks=True,
    keep_trailing_newline=True)

# The templates of each kind of declaration: for its header, its proxy's, its stub's, its source.
_KINDS = {
    syntax.Interface: ("interface.h", "proxy.h", "stub.h", "interface.cpp"),
    syntax.Enum: ("enum.h", "no_class.h", "no_class.h", "enum.cpp"),
    syntax.Parcelable: ("parcelable.h", "no_class.h", "no_class.h", "parcelable.cpp"),
}


def generate(document, sources, headers):
    """Returns a map from path to text. The document must have passed the checker."""
    declaration = document.declaration
    package = pathlib.PurePosixPath(*declaration.full_name[:-1])
    name = declaration.name.text
    header, proxy, stub, source = _KINDS[type(declaration)]
    return {
        headers / "aidl" / package / f"{name}.h": _render(header, declaration),
        headers / "aidl" / package / f"Bp{checker.class_stem(name)}.h": _render(proxy, declaration),
        headers / "aidl" / package / f"Bn{checker.class_stem(name)}.h": _render(stub, declaration),
        sources / package / f"{name}.cpp": _render(source, declaration),
    }


def _render(template, declaration):
    return _TEMPLATES.get_template(template + ".j2").render(
        it=declaration, name=declaration.name.text, stem=checker.class_stem(declaration.name.text),
        descriptor=".".join(declaration.full_name),
        namespace="::".join(("aidl",) + declaration.full_name[:-1]),
        directory="/".join(("aidl",) + declaration.full_name[:-1]),
        includes=_includes(declaration))


def _includes(declaration):
    """The headers of the types that the declaration mentions and that stand in other files."""
    used = [type_.meaning for type_ in checker.types_used(declaration)]
    others = {meaning.full_name for meaning in used
              if not isinstance(meaning, str)
              and meaning.full_name[:len(declaration.full_name)] != declaration.full_name}
    return sorted("/".join(("aidl",) + full_name) + ".h" for full_name in others)


def _cpp(type_):
    """The C++ type of a value."""
    meaning = type_.meaning
    if isinstance(meaning, str):
        element = types.BUILT_IN[meaning]
    else:
        element = "::".join(("", "aidl") + meaning.full_name)
        if isinstance(meaning, syntax.Interface):
            element = f"std::shared_ptr<{element}>"
    return f"std::vector<{element}>" if type_.array else element


def _by_value(type_):
    return not type_.array and isinstance(type_.meaning, (str, syntax.Enum))


def _argument(type_):
    return _cpp(type_) if _by_value(type_) else f"const {_cpp(type_)}&"


def _initial(type_):
    """What follows the name of a variable, so that none is left without a value."""
    if not _by_value(type_):
        return ""
    if isinstance(type_.meaning, syntax.Enum):
        return " = " + _cpp(type_) + "{}"
    return " = false" if type_.meaning == "boolean" else " = 0"


def _parameters(method):
    """The declared arguments of a method."""
    return ", ".join(f"{_argument(one.type)} in_{one.name}" for one in method.parameters)


def _anonymous(method):
    """The same without their names, for a function that looks at none of them."""
    return ", ".join(_argument(one.type) for one in method.parameters)


def _names(method):
    """The arguments of a method, as passed on."""
    return ", ".join(f"in_{one.name}" for one in method.parameters)


_TEMPLATES.filters.update(cpp=_cpp, initial=_initial, parameters=_parameters,
                          anonymous=_anonymous, names=_names)
