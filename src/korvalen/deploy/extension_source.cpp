#include "korvalen/deploy/extension_source.h"

namespace korvalen {

owned_string extension_source(const char *product_dir, const char *version_tag, const char *half) {
  return str_format_new("%s/auxiliary/envi_extensions%s/%s", product_dir, version_tag, half);
}

} // namespace korvalen
