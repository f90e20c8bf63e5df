"""Validates the JSON output of velto-host against docs/schemas."""

import functools
import json
import pathlib

import jsonschema

try:
    import referencing  # newer versions of jsonschema use this library
except ImportError:
    referencing = None

FOLDER = pathlib.Path(__file__).resolve().parents[3] / "docs" / "schemas"


@functools.cache
def store():
    """The schemas by $id."""
    return {schema["$id"]: schema for schema in (json.loads(path.read_text("utf-8")) for path in sorted(FOLDER.glob("*.json")))}


def validator_of(schema):
    """A validator that finds all schemas of the store."""
    if referencing is None:
        resolver = jsonschema.RefResolver.from_schema(schema, store=store())
        return jsonschema.Draft202012Validator(schema, resolver=resolver)
    registry = referencing.Registry().with_contents(store().items())
    return jsonschema.Draft202012Validator(schema, registry=registry)


def check(output):
    """Raises AssertionError if an output does not have the form that it names."""
    name = output.get("schema")
    if name not in store():
        raise AssertionError(f"docs/schemas has no schema {name}")
    validator = validator_of(store()[name])
    # Of the two alternatives, a result and an error, the other one does not matter.
    alternative = {"result": 0, "error": 1}["error" if "error" in output else "result"]
    for error in validator.iter_errors(output):
        found = [each for each in error.context if each.schema_path[0] == alternative] or [error]
        place = "/".join(str(part) for part in found[0].absolute_path)
        raise AssertionError(f"{name}, {place or 'top'}: {found[0].message}")
