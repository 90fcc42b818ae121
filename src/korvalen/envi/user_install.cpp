#include "korvalen/envi/user_install.h"

#include "korvalen/deploy/envi_files.h"
#include "korvalen/deploy/extension_source.h"
#include "korvalen/deploy/idl_files.h"
#include "korvalen/patch/user_menu.h"
#include "korvalen/records/install_log.h"
#include "korvalen/text/strings.h"

#include <cstring>

namespace korvalen {

namespace {

bool contains(const char *version, const char *number) {
  return std::strstr(version, number) != nullptr;
}

owned_string idl_target(const char *envi_dir, const char *idl_dir, bool is_54) {
  if (idl_dir != nullptr)
    return str_format_new("%s", idl_dir);
  if (is_54)
    return str_format_new("%s/idl86", envi_dir);
  return str_format_new("%s/../..", envi_dir);
}

} // namespace

int korvalen_install_uninstall_user_add(const char *theEnviDir, const char *theKorvalenDir,
                                        const char *idlDir, bool uninstall, const char *theInExt) {
  const bool is_60 = contains(theInExt, "60");
  // Wanted: "54" counts only without "60".
  const bool is_54 = !is_60 && contains(theInExt, "54");
  const bool is_known = is_60 || is_54 || contains(theInExt, "53");
  log_line("theInExt  = ", theInExt);

  const owned_string menu_base = str_format_new("%s%s", theEnviDir, is_known ? "/classic" : "");
  log_line("korvalen_install_uninstall_user_add  = ", menu_base.get());
  envi_user_menu_install_uninstall(menu_base.get(), uninstall);
  if (!is_known)
    return 1;

  const owned_string envi_source = extension_source(theKorvalenDir, theInExt, "envi");
  log_line("copy_files_in_envi_dir_envi  = ", envi_source.get());
  log_line("theEnviDir  = ", theEnviDir);
  copy_files_in_envi_dir_envi(envi_source.get(), theEnviDir, uninstall);

  copy_files_in_envi_dir_idl(extension_source(theKorvalenDir, theInExt, "idl").get(),
                             idl_target(theEnviDir, idlDir, is_54).get(), uninstall);
  return 1;
}

} // namespace korvalen
