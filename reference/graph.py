# Function graphs, and the declarations of windows and parameters.

from __future__ import annotations


@dataclass(eq=False)
class FunctionGraphNode:
    """A single node in a function graph (shared by simulator_engine + functions).

    The legacy dict shape of a node is::

        {'type': 'rotation', 'node': 'rank', 'children': [...], 'config': {}}

    The tree is fully typed: children are ``FunctionGraphNode`` instances, never dicts.

    ``eq=False``: the graph is a recursive structure with caches, so equality is by
    identity and hashing falls back to ``object.__hash__``.
    """

    type: str
    node: Any = None
    children: List["FunctionGraphNode"] = field(default_factory=list)
    config: Dict[str, Any] = field(default_factory=dict)
    canonical_id: Optional[str] = None
    family: Optional[str] = None
    value: Any = None
    _node_identities: Optional[Dict[str, Any]] = field(default=None, compare=False, repr=False)
    _collect_nodes_cache: Optional[Any] = field(default=None, compare=False, repr=False)

    def __post_init__(self) -> None:
        if not isinstance(self.type, str) or not self.type:
            raise SchemaError(
                "FunctionGraphNode.type must be a non-empty str; got " + repr(self.type)
            )
        if not isinstance(self.children, list):
            raise SchemaError(
                "FunctionGraphNode.children must be a list; got " + type(self.children).__name__
            )
        for i, child in enumerate(self.children):
            if not isinstance(child, FunctionGraphNode):
                raise SchemaError(
                    f"FunctionGraphNode.children[{i!s}] must be FunctionGraphNode; got "
                    + type(child).__name__
                )
        if not isinstance(self.config, dict):
            raise SchemaError(
                "FunctionGraphNode.config must be a dict; got " + type(self.config).__name__
            )

    @classmethod
    def from_raw(cls, raw: Any) -> "FunctionGraphNode":
        """Parse a JSON graph mapping into a typed tree."""
        if not isinstance(raw, Mapping):
            raise SchemaError(
                "FunctionGraphNode JSON mapping payload required; got " + type(raw).__name__
            )
        node_type = raw.get("type")
        op = raw.get("op")
        node = raw.get("node")
        if node is None:
            node = raw.get("name")
        if node is None:
            node = raw.get("function_name")
        if node_type in _GRAPH_RUNTIME_TYPES:
            kind = node_type
            if node is None and op is not None:
                node = op
        elif node_type == "expression" or node_type is None:
            if op == "feature":
                kind = "feature"
                node = raw.get("name")
            elif op == "filtration":
                kind = node = "filtration"
            elif op:
                kind = "rotation"
                node = op
            else:
                kind = node_type
        else:
            kind = "rotation"
            if node is None:
                node = node_type
        if not isinstance(kind, str) or not kind:
            raise SchemaError("graph node missing required str 'type' field; got " + repr(kind))
        children = raw.get("children")
        if children is None:
            children = raw.get("args", [])
        if children is None:
            children = []
        if not isinstance(children, list):
            raise SchemaError(
                "FunctionGraphNode.children must be a list; got " + type(children).__name__
            )
        typed_children = [cls.from_raw(child) for child in children]
        config = raw.get("config")
        if config is None:
            config = raw.get("params", {})
        return cls(
            type=kind,
            node=node,
            children=typed_children,
            config=dict(config) if isinstance(config, dict) else {},
            canonical_id=raw.get("canonical_id"),
            family=raw.get("family"),
            value=raw.get("value"),
        )


def coerce_graph(raw: Any) -> FunctionGraphNode:
    """Convenience wrapper for top-level graph coercion."""
    return FunctionGraphNode.from_raw(raw)


@dataclass(frozen=True)
class WindowSpec:
    """Window-parameter description used by stateful rotations.

    Accepts the bound dict ``{"window": {"min": 1, "max": 240, "default": 60}}`` and
    the bare scalar ``{"window": 60}``; ``from_raw`` receives the inner value.
    """

    minimum: Optional[int] = None
    maximum: Optional[int] = None
    default: Optional[int] = None
    value: Optional[int] = None

    def __post_init__(self) -> None:
        for name, value in (
            ("minimum", self.minimum),
            ("maximum", self.maximum),
            ("default", self.default),
            ("value", self.value),
        ):
            if value is None:
                continue
            if not isinstance(value, int) or isinstance(value, bool):
                raise SchemaError(
                    "WindowSpec." + name + " must be int or None; got " + type(value).__name__
                )

    @classmethod
    def from_raw(cls, raw: Any) -> Optional["WindowSpec"]:
        if raw is None:
            return None
        if isinstance(raw, WindowSpec):
            return raw
        if isinstance(raw, bool):  # before the test for int, of which bool is a subclass
            raise SchemaError("WindowSpec payload cannot be bool")
        if isinstance(raw, int):
            return cls(value=raw)
        if isinstance(raw, dict):
            return cls(
                minimum=raw.get("min"),
                maximum=raw.get("max"),
                default=raw.get("default"),
                value=raw.get("value"),
            )
        raise SchemaError(
            "WindowSpec payload must be int, dict, or None; got " + type(raw).__name__
        )

    def picked(self, clamp_to: int = 1440) -> Optional[int]:
        """Return the canonical window value (explicit, default, or clamped)."""
        if self.value is not None:
            return self.value
        if self.default is not None:
            return self.default
        if self.minimum is not None and self.maximum is not None:
            return max(self.minimum, min(clamp_to, self.maximum))
        return None


@dataclass(frozen=True)
class ParamSpec:
    """A single parameter declaration on a function entry."""

    name: str
    type: Optional[str] = None
    default: Any = None
    minimum: Any = None
    maximum: Any = None
    variadic: bool = False
    window: Optional[WindowSpec] = None

    def __post_init__(self) -> None:
        if not isinstance(self.name, str) or not self.name:
            raise SchemaError("ParamSpec.name must be a non-empty str; got " + repr(self.name))
        if self.window is not None and not isinstance(self.window, WindowSpec):
            raise SchemaError(
                "ParamSpec.window must be WindowSpec or None; got " + type(self.window).__name__
            )

    @classmethod
    def from_raw(cls, name: str, raw: Any) -> "ParamSpec":
        """Build a spec for ``name`` from a raw entry.

        Accepted shapes: a scalar (treated as the default); a dict with optional ``type``,
        ``default``, ``min``, ``max``, ``variadic`` and, for window parameters, any window
        subkeys; a ``ParamSpec`` (identity passthrough); a ``WindowSpec`` (wrapped as the
        window field).
        """
        if isinstance(raw, ParamSpec):
            if raw.name != name:
                return ParamSpec(
                    name=name,
                    type=raw.type,
                    default=raw.default,
                    minimum=raw.minimum,
                    maximum=raw.maximum,
                    variadic=raw.variadic,
                    window=raw.window,
                )
            return raw
        if isinstance(raw, WindowSpec):
            return cls(name=name, window=raw, default=raw.default)
        if raw is None:
            return cls(name=name)
        if not isinstance(raw, dict):
            return cls(name=name, default=raw)
        window = None
        if name == "window" or "min" in raw or "max" in raw:
            window = WindowSpec.from_raw(raw)
        return cls(
            name=name,
            type=raw.get("type"),
            default=raw.get("default"),
            minimum=raw.get("min"),
            maximum=raw.get("max"),
            variadic=bool(raw.get("variadic", False)),
            window=window,
        )

    @classmethod
    def from_mapping(cls, raw: Any) -> List["ParamSpec"]:
        """Build a list of ParamSpec from a name->entry mapping or list."""
        if raw is None:
            return []
        if isinstance(raw, list):
            return [
                entry if isinstance(entry, ParamSpec) else cls.from_raw(_param_name(entry), entry)
                for entry in raw
            ]
        if isinstance(raw, dict):
            return [cls.from_raw(key, value) for key, value in raw.items()]
        raise SchemaError(
            "ParamSpec list payload must be dict, list, or None; got " + type(raw).__name__
        )

    @classmethod
    def coerce_specs(cls, raw: Any) -> Dict[str, "ParamSpec"]:
        """Return a name-to-spec view of a heterogeneous ``param_schema``.

        Bridges ``StaticFunctionEntry.param_schema: List[StaticParam]`` (typed list) and the
        ``FunctionStore`` entry's ``param_schema: dict`` (name to sub-dict). Pure JSON
        sub-dicts and ``StaticParam`` objects are both accepted.
        """
        result = {}
        for spec in cls.from_mapping(raw):
            result[spec.name] = spec
        return result


def _param_name(spec: Any) -> str:
    name = getattr(spec, "name", None)
    if isinstance(name, str) and name:
        return name
    raise SchemaError("ParamSpec list entry missing .name attribute; got " + type(spec).__name__)
