// Import statements of the module body.
#pragma once

#include <span>

#include "common/objects.h"

namespace typed_shapes {

using Texts = std::span<const char* const>;

// [text, ...]
[[nodiscard]] Ref list_of(Texts texts);

// import module_name as bound_name
Ref import_as(const char* module_name, const char* bound_name);
// from module_name import imported
void import_from(const char* module_name, Texts imported);
// An exact dict passes for a Mapping without a question. Where somebody put another one into typing
// before us, that one is asked: the names never count as untouched. After the import of Mapping.
void check_mapping();

}  // namespace typed_shapes
