"""Writes the package's stubs: the hand-written template with a class per effect of the table.

    stubgen.py TEMPLATE OUTPUT       (the built package on PYTHONPATH)

Each effect's class carries its process() with every option as a keyword, typed and documented
with its range and default, so that editors show them.
"""

import sys

del sys.path[0]  # the script's folder holds the package's sources, not the built package
import vantyx  # noqa: E402


def effect_class(entry, cls):
    options = "".join(f"        {option}: {vantyx._option_annotation(info)} = ...,\n"
                      for option, info in entry["options"].items())
    doc = "\n".join(("        " + line).rstrip() for line in cls.process.__doc__.split("\n"))
    return (f"class {cls.__name__}(Effect):\n"
            f'    """{cls.__doc__}"""\n\n'
            f"    def process(\n        self,\n        img: NDArray[np.uint8],\n        *,\n"
            f"        out: NDArray[np.uint8] | None = None,\n"
            f"        rect: Sequence[int] | None = None,\n"
            f"        mask: NDArray[np.uint8] | None = None,\n{options}"
            f"    ) -> NDArray[np.uint8]:\n"
            f'        """{doc.lstrip()}\n        """\n')


def main(template, output):
    classes, overloads = [], []
    for name, entry in vantyx._TABLE.items():
        cls = vantyx._EFFECT_CLASSES[name]
        classes.append(effect_class(entry, cls))
        overloads.append(f"    @overload\n"
                         f'    def effect(self, name: Literal["{name}"]) -> {cls.__name__}: ...\n')
    text = open(template).read()
    for marker, parts in (("# @effect classes@\n", classes),
                          ("    # @effect overloads@\n", overloads + ["    @overload\n"])):
        if marker not in text:
            sys.exit(f"stubgen: {template} lacks the line {marker.strip()!r}")
        text = text.replace(marker, "\n".join(parts) if marker[0] == "#" else "".join(parts))
    with open(output, "w") as out:
        out.write(text)


if __name__ == "__main__":
    main(*sys.argv[1:])
