#!/usr/bin/env python3
"""Checks a JSON document (a file, or standard input) against one of the
schemas in docs/schemas, which may refer to the others by file name.
Exits 0 when it is valid; otherwise prints each error and exits 1."""
import glob
import json
import os
import sys
import warnings

import jsonschema


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit("usage: check-json-schema.py SCHEMA [DOCUMENT]")
    schema_path = os.path.abspath(sys.argv[1])
    with open(schema_path, encoding="utf-8") as f:
        schema = json.load(f)
    document = json.load(open(sys.argv[2], encoding="utf-8") if len(sys.argv) == 3 else sys.stdin)
    # Every schema beside it, under its id and under its file name.
    store = {}
    for path in glob.glob(os.path.join(os.path.dirname(schema_path), "*.schema.json")):
        with open(path, encoding="utf-8") as f:
            other = json.load(f)
        store[other.get("$id", "")] = other
        store[os.path.basename(path)] = other
    validator_class = jsonschema.validators.validator_for(schema)
    validator_class.check_schema(schema)
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", DeprecationWarning)
        resolver = jsonschema.RefResolver(schema.get("$id", ""), schema, store=store)
        errors = sorted(validator_class(schema, resolver=resolver).iter_errors(document), key=str)
    for error in errors:
        where = "/".join(str(p) for p in error.absolute_path) or "(top)"
        print(f"{sys.argv[1]}: {where}: {error.message}")
    sys.exit(1 if errors else 0)


main()
