// Where the product keeps its extension files.
#pragma once

#include "korvalen/text/strings.h"

namespace korvalen {

// <product_dir>/auxiliary/envi_extensions<version_tag>/<half>, where half is "envi" or "idl".
owned_string extension_source(const char *product_dir, const char *version_tag, const char *half);

} // namespace korvalen
