// The per-user installation for one ENVI version.
#pragma once

namespace korvalen {

// Installs or uninstalls the classic menu entries, the ENVI extension files and the IDL files of one ENVI
// version, named by theInExt: a text that holds "60", "54" or "53", looked for in this order, and that is
// also the suffix of the product's source directories. For any other text only the menu entries are handled,
// below theEnviDir itself instead of its "classic". IDL's files go into idlDir, or, when that is null, into
// <theEnviDir>/idl86 for 5.4 and <theEnviDir>/../.. otherwise. theEnviDir has no trailing "/". Always 1. The
// process ends as fdfCopyFile does when a file cannot be created.
int korvalen_install_uninstall_user_add(const char *theEnviDir, const char *theKorvalenDir,
                                        const char *idlDir, bool uninstall, const char *theInExt);

} // namespace korvalen
