// Joining the product to one ENVI installation.
#pragma once

namespace korvalen {

// The launch scripts, in the bin directories of ENVI and of IDL.
inline constexpr const char *envi_launch_scripts[] = {"envi", "envi_rt", "envitaskengine"};
inline constexpr const char *idl_launch_scripts[] = {"idl", "idlde"};

// Which of the product's extension directories is deployed.
inline constexpr const char *extensions_version = "_54";

// Patches ENVI's launch scripts, deploys the product's extensions into the ENVI directory and into the IDL
// directory inside it, and patches IDL's launch scripts. A trailing "/" of either directory does not count.
// Without an ENVI directory (null or empty) only the progress text is printed. Prints progress and warnings
// on standard output. 1 when it finished, 0 when there is no IDL directory; the ENVI scripts then stay
// patched and nothing is deployed. The process ends as fdfCopyFile does when a file cannot be created. The
// third argument is not used.
int fkorvInstallEnviExtensions(const char *envi_dir, const char *product_dir, const void *unused,
                               const char *init_dir);

} // namespace korvalen
