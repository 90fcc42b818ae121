// Patching one launch script so that it exports KORVALEN_INIT_DIR.
//
// A pristine copy stands beside the script, under the script's path followed by "_original". It is made once,
// never changed and never removed (only a link to the script itself gives way to it), and every patch starts
// from it: patching again, with another value too, replaces the earlier block. The value is the init
// directory, or the product directory when init_dir is null. Messages go to standard output. The process ends
// as fdfCopyFile does when a script or its copy cannot be created. Nothing is recorded in the uninstall
// script.
#pragma once

namespace korvalen {

// ENVI's scripts: a block of five lines, which a value in the user's environment overrides, before the first
// line that holds "if [", or else at the top. A script that is missing without a copy of it is created,
// holding only the block; one that appears during the wait is left alone. Takes a second. 0 when the script
// could not be read back, else 1, even when it could not be opened for writing.
int fkorvPatchEnviScript(const char *script, const char *product_dir, const char *init_dir);

// IDL's scripts: a block of three lines before the first line that holds "INSTALL_DIR=", or else at the top.
// 0 when the script is missing or could not be read back, else 1, even when it could not be opened for
// writing.
int fkorvPatchIdlScript(const char *script, const char *product_dir, const char *init_dir);

} // namespace korvalen
