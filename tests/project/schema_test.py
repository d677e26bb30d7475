#!/usr/bin/env python3
"""Usage: schema_test.py PROGRAM SCHEMA: what the program takes for a project, the schema must take,
and what the schema refuses, the program must refuse. Rules that no schema can state (names that
come twice, sums of shares, an order of two numbers) are the program's alone."""

import copy
import json
import subprocess
import sys

try:
    import jsonschema
except ImportError:
    print("SKIPPED: python3-jsonschema is not installed")
    sys.exit(0)

GOOD = {
    "ratseg-project": 1,
    "labels": [
        {"name": "austenite", "colour": "#3070B0", "share": 0.58, "spread": "measured"},
        {"name": "martensite", "share": "9 %", "spread": 0.01},
        {"name": "rest", "share": "rest"},
    ],
    "shares": {"of": "image", "over": "series", "weight": 2},
    "strokes": [{"picture": "a.tif", "page": 2, "strokes": "a_strokes.png"}],
    "model": "both",
    "mix": 0.5,
    "boundary": 5,
    "tolerance": 1e-3,
    "range": [0, 4095],
}

VALUES = [None, True, -1, 0, 0.5, 1, 2, 1.5, 1e9, 1e308, "", "rest", "5", "5%", "5 %", "101 %", "x%",
          "100 %", "0.5 %", "measured", "image", "#12345g", "#123456", "a\nb", "a/b", "é", [], [1],
          [0, 1], [0, "1"], {}, {"x": 1}]


def places(value, path=()):
    """All places of a document."""
    yield path
    items = value.items() if isinstance(value, dict) else enumerate(value) if isinstance(
        value, list) else ()
    for key, item in items:
        yield from places(item, (*path, key))


def changed(document, path, value):
    if not path:
        return value
    result = copy.deepcopy(document)
    inner = result
    for key in path[:-1]:
        inner = inner[key]
    inner[path[-1]] = value
    return result


def without(document, path):
    result = copy.deepcopy(document)
    inner = result
    for key in path[:-1]:
        inner = inner[key]
    del inner[path[-1]]
    return result


def documents():
    yield GOOD
    for path in places(GOOD):
        for value in VALUES:
            yield changed(GOOD, path, value)
        if path:
            yield without(GOOD, path)
    for path in places(GOOD):
        inner = GOOD
        for key in path:
            inner = inner[key]
        if isinstance(inner, dict):
            yield changed(GOOD, (*path, "unknown"), 1)


# Of the program's own rules, the beginnings of what it says.
OWN_RULES = ("no /labels: ", "no /labels/0/name: expected a name that no other",
             "no /labels/1/name: expected a name that no other",
             "no /labels/2/name: expected a name that no other", "no /range: expected two numbers")


def main():
    program, schema = sys.argv[1:]
    with open(schema, encoding="utf-8") as stream:
        schema = json.load(stream)
    jsonschema.Draft202012Validator.check_schema(schema)
    validator = jsonschema.Draft202012Validator(schema)
    all_documents = list(documents())
    lines = "".join(json.dumps(d) + "\n" for d in all_documents)
    done = subprocess.run([program], input=lines, capture_output=True, text=True, check=True)
    answers = done.stdout.splitlines()
    assert len(answers) == len(all_documents), "an answer for each document"
    wrong = 0
    counts = {True: 0, False: 0}
    for document, answer in zip(all_documents, answers):
        valid = validator.is_valid(document)
        taken = answer == "yes"
        counts[taken] += 1
        if valid == taken or (valid and answer.startswith(OWN_RULES)):
            continue
        wrong += 1
        print(f"schema: {valid}, program: {answer}\n    {json.dumps(document)}")
    assert counts[True] > 20 and counts[False] > 100, counts
    print(f"{len(answers)} documents, {counts[True]} projects, {wrong} disagreements")
    sys.exit(1 if wrong else 0)


if __name__ == "__main__":
    main()
