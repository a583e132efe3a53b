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
// An exact dict is accepted as a Mapping without calling isinstance. If typing.Mapping was replaced
// before the import, the names never count as untouched, so that isinstance is called. Comes after
// the import of Mapping.
void check_mapping();

}  // namespace typed_shapes
