"""What the API says of itself, held against what it answers."""

import re


class Description:
    """The OpenAPI document. What its schemas say that this does not know is refused, so that nothing
    of it goes unlooked at."""

    KNOWN = {"$ref", "additionalProperties", "allOf", "const", "default", "description", "enum",
             "format", "items", "maximum", "minItems", "minimum", "oneOf", "properties", "required",
             "type", "x-unit"}
    TYPES = {"object": dict, "array": list, "string": str, "boolean": bool, "null": type(None)}

    def __init__(self, document):
        self.document = document
        self.seen = set()  # the places of the members that have occurred

    def operations(self):
        """Method, path and description of each."""
        for path, methods in self.document["paths"].items():
            for method, operation in methods.items():
                yield method.upper(), path, operation

    def parameters(self, operation, where):
        """The names of those that an operation has in one place: "path", "query" or "header"."""
        all_of_it = [self.follow(one) for one in operation.get("parameters", [])]
        return [one["name"] for one in all_of_it if one["in"] == where]

    def at(self, place):
        found = self.document
        for part in place.removeprefix("#/").split("/"):
            found = found[int(part)] if isinstance(found, list) else found[part.replace("~1", "/")]
        return found

    def follow(self, schema):
        return self.at(schema["$ref"]) if "$ref" in schema else schema

    def members(self, place):
        """Where each member of an object is described, which must be there, and where those are
        that have no name of their own."""
        schema = self.at(place)
        if "$ref" in schema:
            return self.members(schema["$ref"])
        places = {name: f"{place}/properties/{name}" for name in schema.get("properties", {})}
        required = set(schema.get("required", []))
        others = f"{place}/additionalProperties" if schema.get("additionalProperties") else None
        for number, _ in enumerate(schema.get("allOf", [])):
            more, also, _ = self.members(f"{place}/allOf/{number}")
            places |= more
            required |= also
        return places, required, others

    def member_places(self):
        """Where every member of any schema is described."""
        def walk(place, schema):
            for name, child in schema.get("properties", {}).items():
                yield f"{place}/properties/{name}"
                yield from walk(f"{place}/properties/{name}", child)
            for keyword in ("oneOf", "allOf"):
                for number, child in enumerate(schema.get(keyword, [])):
                    yield from walk(f"{place}/{keyword}/{number}", child)
            for keyword in ("items", "additionalProperties"):
                if isinstance(schema.get(keyword), dict):
                    yield from walk(f"{place}/{keyword}", schema[keyword])
        for name, schema in self.document["components"]["schemas"].items():
            yield from walk(f"#/components/schemas/{name}", schema)

    def problems(self, value, place):
        """Where a value is not as described, which a member that is not described is too. What has
        occurred in it is noted where it is."""
        problems, seen = self._look(value, place)
        self.seen |= seen
        return problems

    def _look(self, value, place):
        schema = self.at(place)
        unknown = schema.keys() - self.KNOWN
        if unknown:
            return [f"{place}: what is {unknown}?"], set()
        if "$ref" in schema:
            return self._look(value, schema["$ref"])
        if "oneOf" in schema:
            return self._look_at_one(value, place, len(schema["oneOf"]))
        problems = [f"{place}: {value!r} {wrong}" for wrong in self._wrong(value, schema)]
        if problems:
            return problems, set()
        if isinstance(value, dict) and {"properties", "additionalProperties", "allOf"} & schema.keys():
            return self._look_at_object(value, place)
        seen = set()
        if isinstance(value, list):
            for one in value:
                more, inside = self._look(one, f"{place}/items")
                problems += more
                seen |= inside
        return problems, seen

    def _look_at_one(self, value, place, count):
        found = [self._look(value, f"{place}/oneOf/{number}") for number in range(count)]
        fitting = [one for one in found if not one[0]]
        if len(fitting) == 1:
            return fitting[0]
        return [f"{place}: {len(fitting)} of {count} fit {value!r}: {found}"], set()

    def _look_at_object(self, value, place):
        places, required, others = self.members(place)
        problems = [f"{place}: {name} is missing" for name in required - value.keys()]
        seen = set()
        for name, one in value.items():
            inside = places.get(name, others)
            if inside is None:
                problems.append(f"{place}: {name} is not described")
                continue
            more, below = self._look(one, inside)
            problems += more
            seen |= below | {inside}
        return problems, seen

    def _wrong(self, value, schema):
        """What is wrong with a value itself."""
        types = schema.get("type", [])
        types = [types] if isinstance(types, str) else types
        if types and not any(self._is_of(value, one) for one in types):
            yield f"is none of {types}"
        if "const" in schema and value != schema["const"]:
            yield f"is not {schema['const']!r}"
        if "enum" in schema and value not in schema["enum"]:
            yield f"is none of {schema['enum']}"
        if schema.get("format") == "date-time" and not re.fullmatch(
                r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d(\.\d+)?Z", str(value)):
            yield "is no time"
        if "minimum" in schema and value < schema["minimum"]:
            yield f"is below {schema['minimum']}"
        if "maximum" in schema and value > schema["maximum"]:
            yield f"is above {schema['maximum']}"

    def _is_of(self, value, name):
        if name == "integer":
            return isinstance(value, int) and not isinstance(value, bool)
        if name == "number":
            return isinstance(value, (int, float)) and not isinstance(value, bool)
        return isinstance(value, self.TYPES[name])
