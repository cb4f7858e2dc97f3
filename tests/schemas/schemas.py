"""What the checks of the schemas share."""

import copy
import json
import pathlib
import sys

try:
    import jsonschema
except ImportError:
    print("skipped: python3-jsonschema is not installed", file=sys.stderr)
    sys.exit(77)
if not hasattr(jsonschema, "Draft202012Validator"):
    print("skipped: this python3-jsonschema is too old for the schemas", file=sys.stderr)
    sys.exit(77)

failures = []


def fail(message):
    failures.append(message)


def finish():
    for failure in failures:
        print(f"FAILED: {failure}", file=sys.stderr)
    sys.exit(1 if failures else 0)


class Schemas:
    """The schemas of a folder, which refer to each other by their files' names."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder).resolve()
        self.by_name = {}
        for file in sorted(self.folder.glob("*.schema.json")):
            name = file.name.removesuffix(".schema.json")
            self.by_name[name] = json.loads(file.read_text(encoding="utf-8"))
        if len(self.by_name) < 5:
            raise SystemExit(f"only {len(self.by_name)} schemas in {self.folder}")

    def uri(self, name):
        return (self.folder / f"{name}.schema.json").as_uri()

    def errors(self, name, document):
        """What is wrong with the document, or nothing."""
        store = {self.uri(each): schema for each, schema in self.by_name.items()}
        validator = jsonschema.Draft202012Validator(
            self.by_name[name],
            resolver=jsonschema.RefResolver(self.uri(name), self.by_name[name], store),
        )
        return [
            f"{'/'.join(map(str, error.absolute_path)) or 'document'}: {error.message}"
            for error in validator.iter_errors(document)
        ]

    def resolved(self, name, schema):
        """The schema that this part of the file `name` refers to, with the name of its file."""
        while "$ref" in schema:
            file, _, pointer = schema["$ref"].partition("#")
            name = file.removesuffix(".schema.json") or name
            schema = self.by_name[name]
            for step in pointer.split("/")[1:]:
                schema = schema[step]
        return name, schema


def subschemas(schema):
    """The schema and all that stand inside it."""
    yield schema
    for keyword in ("properties", "$defs"):
        for child in schema.get(keyword, {}).values():
            yield from subschemas(child)
    for keyword in ("items", "additionalProperties"):
        if isinstance(schema.get(keyword), dict):
            yield from subschemas(schema[keyword])


def objects_in(document, path=()):
    """The places of all objects in the document, each with what they hold."""
    if isinstance(document, dict):
        yield path, document
        for key, value in document.items():
            yield from objects_in(value, path + (key,))
    elif isinstance(document, list):
        for index, value in enumerate(document):
            yield from objects_in(value, path + (index,))


def changed(document, path, change):
    """A copy of the document in which `change` was applied to the object at `path`."""
    copied = copy.deepcopy(document)
    target = copied
    for step in path:
        target = target[step]
    change(target)
    return copied
