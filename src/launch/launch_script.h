// Patching one launch script so that it exports KORVALEN_INIT_DIR.
//
// A pristine copy stands beside the script, under the script's path followed by "_original". It is made once,
// never changed and never removed, and every patch starts from it: patching again, with another value too,
// replaces the earlier block. The value is the init directory, or the product directory when init_dir is
// null. Messages go to standard output. The process ends as fdfCopyFile does when a script or its copy cannot
// be created. Nothing is recorded in the uninstall script.
#pragma once

namespace korvalen {

// ENVI's scripts: a block of five lines, which a value in the user's environment overrides, before the first
// line that holds "if [". A script that is missing without a copy of it is created, holding only the block.
// Takes a second. 1 when the script was written, 0 when it could not be read back.
int fkorvPatchEnviScript(const char *script, const char *product_dir, const char *init_dir);

// IDL's scripts: a block of three lines before the first line that holds "INSTALL_DIR=".
// 1 when the script was written, 0 when it is missing or could not be read back.
int fkorvPatchIdlScript(const char *script, const char *product_dir, const char *init_dir);

} // namespace korvalen
