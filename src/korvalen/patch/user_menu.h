// The product's two plot functions in ENVI's classic user menu.
#pragma once

namespace korvalen {

// Adds the product's two lines to <dir>/menu/useradd.txt, at the end of its first block of lines, or takes
// them out again. A trailing "/" of dir does not count. Before the first change the file is kept as
// useradd_old.txt, which is never replaced; the new text is built in useradd_new.txt, which stays. Both
// copies are recorded in the uninstall script. False when there is nothing to change (no useradd.txt, or no
// line in it) or no complete backup could be made; then useradd.txt is as it was. The process ends as
// fdfCopyFile does when a file cannot be created.
bool envi_user_menu_install_uninstall(const char *dir, bool uninstall);

} // namespace korvalen
