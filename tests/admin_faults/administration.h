// The host that korvalen_admin is disturbed on, and its commands.
#pragma once

#include "admin_faults/family_run.h"
#include "admin_faults/host_tree.h"

#include <string>

namespace faults {

// Where the state directory and the scratch directories stand below own_root.
inline constexpr const char *state_dir = "var_lib";
inline constexpr const char *install_command = "install";
inline constexpr const char *uninstall_command = "uninstall";
inline constexpr const char *verify_command = "verify";

// Of a file that is replaced.
inline constexpr const char *second_name = "opt/envi54/extensions/zz_second_name.sav";

// Gives the calling process a file system of its own at own_root for a host, with another one for /var/lib
// and a directory for /var/tmp in it. False when the system does not let it.
bool enter_own_host();
bool can_enter_own_host();

// A small product, unpacked, and an ENVI that it was never installed into: with files that are replaced,
// patched and removed, of several modes, owners, names and attributes.
host_tree fresh_host();

// The product as its next release has it.
void upgrade_product(host_tree &host);

// A command of korvalen_admin for that product and that ENVI.
program administration(const std::string &command);

// Runs it undisturbed.
family_outcome administer(const std::string &command);

// What it printed.
std::string printed_by(const program &tool);

} // namespace faults
