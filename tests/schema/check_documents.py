#!/usr/bin/python3
"""Validates every --json document the end-to-end tests collected against the
schema of its command (error.schema.json for failures) and fails when one is
invalid or when a command produced no document at all.

    check_documents.py SCHEMA_DIR DOCUMENT_DIR
"""
import json
import pathlib
import sys
import warnings

import jsonschema

COMMANDS = ["inventory", "update", "report", "check", "history", "trust", "metrics"]


def load_schemas(folder):
    # References are relative file names, resolved against the schema's own path.
    schemas = {path.resolve().as_uri(): json.loads(path.read_text()) for path in folder.glob("*.schema.json")}
    with warnings.catch_warnings():  # newer jsonschema releases prefer the referencing package
        warnings.simplefilter("ignore", DeprecationWarning)
        return {uri.rsplit("/", 1)[1]: jsonschema.Draft202012Validator(
                    schema, resolver=jsonschema.RefResolver(uri, schema, store=schemas))
                for uri, schema in schemas.items()}


def schema_name(document):
    if "error" in document or not isinstance(document.get("command"), str):
        return "error.schema.json"
    return document["command"] + ".schema.json"


def main(schema_folder, document_folder):
    validators = load_schemas(pathlib.Path(schema_folder))
    seen, failures = set(), []
    for path in sorted(pathlib.Path(document_folder).glob("*.json")):
        try:
            document = json.loads(path.read_text())
            name = schema_name(document)
            errors = [f"{'/'.join(map(str, e.absolute_path))}: {e.message}" for e in validators[name].iter_errors(document)]
        except (ValueError, KeyError, AttributeError) as error:
            name, errors = "?", [f"not a document of a known command: {error!r}"]
        failures += [f"{path} ({name}): {error}" for error in errors]
        seen.add(name)
    missing = [c for c in COMMANDS + ["error"] if c + ".schema.json" not in seen]
    failures += [f"no --json document of {command} was collected" for command in missing]
    print("\n".join(failures) or f"{len(list(pathlib.Path(document_folder).glob('*.json')))} documents valid")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
