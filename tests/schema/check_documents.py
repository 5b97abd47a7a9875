#!/usr/bin/python3
# Validates every --json document that the end-to-end tests collected against
# its command's schema (error.schema.json for failures); fails on an invalid
# one and on a command without any document.
#   check_documents.py SCHEMA_DIR DOCUMENT_DIR
import json
import pathlib
import sys
import warnings

import jsonschema

warnings.simplefilter("ignore", DeprecationWarning)  # newer jsonschema releases prefer the referencing package
# References are relative file names, resolved against the schema's own path.
schemas = {p.resolve().as_uri(): json.loads(p.read_text()) for p in pathlib.Path(sys.argv[1]).glob("*.schema.json")}
validators = {uri.rsplit("/", 1)[1]: jsonschema.Draft202012Validator(schema, resolver=jsonschema.RefResolver(
    uri, schema, store=schemas)) for uri, schema in schemas.items()}


def check(path):
    """The schema the document was checked against and what is wrong with it."""
    try:
        document = json.loads(path.read_text())
        failed = "error" in document or not isinstance(document.get("command"), str)
        name = "error.schema.json" if failed else document["command"] + ".schema.json"
        return name, [f"{path} ({name}) /{'/'.join(map(str, e.absolute_path))}: {e.message}"
                      for e in validators[name].iter_errors(document)]
    except (ValueError, KeyError, AttributeError) as error:
        return None, [f"{path}: not a document of a known command: {error!r}"]


# Every document kind is a schema that extends the envelope: each command's, and error's.
kinds = sorted(name[:-len(".schema.json")] for name, schema in
               ((p.name, p.read_text()) for p in pathlib.Path(sys.argv[1]).glob("*.schema.json"))
               if "envelope.schema.json" in schema)
paths = sorted(pathlib.Path(sys.argv[2]).glob("*.json"))
checked = [check(path) for path in paths]
seen = {name for name, _ in checked}
failures = [problem for _, problems in checked for problem in problems] + [f"no --json document of {command} was collected"
             for command in kinds if command + ".schema.json" not in seen]
print("\n".join(failures) or f"{len(paths)} documents valid")
sys.exit(1 if failures else 0)
