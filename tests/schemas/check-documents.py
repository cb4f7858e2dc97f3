#!/usr/bin/python3 -B
"""Every field of every document is described, and whatever is not as described is refused.

usage: check-documents.py SCHEMAS NODO_SAMPLE_DOCUMENTS
"""

import json
import subprocess
import sys

from schemas import Schemas, changed, fail, finish, jsonschema, objects_in, subschemas

# Its members are values for the others, no documents.
SHARED = "common"


class Coverage:
    """Which properties and values of which schemas stood in a document, and which properties were
    left out of one."""

    def __init__(self, schemas):
        self.schemas = schemas
        self.present = set()
        self.absent = set()
        self.values = set()

    def see(self, file, schema, document):
        file, schema = self.schemas.resolved(file, schema)
        if isinstance(document, list):
            for item in document:
                self.see(file, schema["items"], item)
        elif "enum" in schema:
            self.values.add((id(schema), document))
        elif isinstance(document, dict):
            for key, child in schema.get("properties", {}).items():
                if key in document:
                    self.present.add((id(schema), key))
                    self.see(file, child, document[key])
                else:
                    self.absent.add((id(schema), key))

    def check(self):
        """That each key stood in a document, and was left out of one exactly if it may be; and that
        each value of an enumeration stood in one, as the sample documents have all there are."""
        for name, schema in self.schemas.by_name.items():
            for part in subschemas(schema):
                for value in part.get("enum", []):
                    if (id(part), value) not in self.values:
                        fail(f"{name}: no document has the value {value}")
                for key in part.get("properties", {}):
                    may_be_absent = key not in part.get("required", [])
                    if (id(part), key) not in self.present:
                        fail(f"{name}: no document has {key}")
                    if may_be_absent and (id(part), key) not in self.absent:
                        fail(f"{name}: every document has {key}, which may be absent")


def check_schema(name, schema):
    jsonschema.Draft202012Validator.check_schema(schema)
    for part in subschemas(schema):
        if part.get("type") == "object" and "additionalProperties" not in part:
            fail(f"{name}: an object says nothing about further keys")


def broken_copies(schemas, name, document):
    """Copies of a document that must be refused, each after what is wrong with it."""
    yield "another kind of document", "text"
    for path, held in objects_in(document):
        place = f"{name} at {'/'.join(map(str, path)) or 'the top'}"
        yield f"{place} with a new key", changed(document, path, lambda at: at.update(new="x"))
        for key, value in held.items():
            other = {} if isinstance(value, list) else []
            yield (
                f"{place} with {key} of another type",
                changed(document, path, lambda at, key=key, other=other: at.update({key: other})),
            )
    for key in schemas.by_name[name].get("required", []):
        yield f"{name} without {key}", changed(document, (), lambda at, key=key: at.pop(key))


def main():
    schemas = Schemas(sys.argv[1])
    for name, schema in schemas.by_name.items():
        check_schema(name, schema)
    samples = subprocess.run([sys.argv[2]], check=True, capture_output=True, text=True).stdout
    coverage = Coverage(schemas)
    seen = set()
    refused = 0
    for line in samples.splitlines():
        name, _, text = line.partition("\t")
        document = json.loads(text)
        seen.add(name)
        for error in schemas.errors(name, document):
            fail(f"{name}: {error}")
        coverage.see(name, schemas.by_name[name], document)
        for what, broken in broken_copies(schemas, name, document):
            if schemas.errors(name, broken):
                refused += 1
            else:
                fail(f"accepted although broken: {what}")
    coverage.check()
    for name in schemas.by_name.keys() - seen - {SHARED}:
        fail(f"no sample document for {name}")
    print(f"{len(samples.splitlines())} documents, {refused} broken ones refused")
    finish()


main()
