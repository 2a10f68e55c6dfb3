#!/usr/bin/env python3
# Reduces a description by abidw to what hosts see: exported names and the types that these reach. Private C++ of the
# sources, of the same compilation, is ten times as much. Reads standard input, writes standard output.
import re, sys, xml.etree.ElementTree as xml

OPAQUE = re.compile(r"^(__[A-Z]|OpaqueAudio|_IO_|os_log)")  # hosts have only pointers to these
corpus = xml.parse(sys.stdin)
parent = {child: element for element in corpus.iter() for child in element}
types = {}
for element in list(corpus.iter()):
    if element.tag == "class-decl" and OPAQUE.match(element.get("name")):
        element[:] = []
        element.attrib = {name: element.get(name, "yes") for name in ("name", "is-struct", "is-declaration-only", "id")}
    if "id" in element.attrib and element.tag != "subrange":
        types.setdefault(element.get("id"), []).append(element)

kept = set()


def keep(element):
    """Marks an element, the types that it names, and the class that it is part of."""
    if element in kept:
        return
    kept.add(element)
    for part in element.iter():
        for name in ("type-id", "naming-typedef-id"):
            for kind in types.get(part.get(name), []):
                keep(kind)
    while parent[element].tag in ("member-function", "member-type", "class-decl"):
        element = parent[element]
        keep(element)


def prune(element):
    for child in list(element):
        if child.tag in ("abi-instr", "namespace-decl"):
            prune(child)
            if len(child) == 0:
                element.remove(child)
        elif element.tag in ("abi-instr", "namespace-decl") and child not in kept:
            element.remove(child)


sys.setrecursionlimit(10000)
for element in corpus.iter():
    if "elf-symbol-id" in element.attrib:
        keep(element)
prune(corpus.getroot())
for element in corpus.iter():
    element.text, element.tail = "\n" if len(element) else None, "\n"
corpus.write(sys.stdout, encoding="unicode")
