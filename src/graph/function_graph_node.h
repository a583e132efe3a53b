#pragma once

namespace typed_shapes {

// FunctionGraphNode and coerce_graph.
void define_function_graph_node();

}  // namespace typed_shapes
