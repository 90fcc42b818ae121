#include "support/programs.h"

namespace support {

const char *const installer_path = INSTALLER_PATH;
const char *const admin_path = ADMIN_PATH;
const char *const samples_path = SAMPLES_PATH;

} // namespace support
