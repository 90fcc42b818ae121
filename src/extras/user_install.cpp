#include "extras/user_install.h"

#include "deploy/envi_files.h"
#include "deploy/extension_source.h"
#include "deploy/idl_files.h"
#include "driver/install_log.h"
#include "driver/strings.h"
#include "extras/user_menu.h"

#include <cstring>

namespace korvalen {

namespace {

struct version_marks {
  bool is_60;
  bool is_54;
  bool is_53;
};

// Wanted: "54" counts only without "60", and "53" counts beside "60" but not beside "54".
version_marks classify(const char *version) {
  const bool is_60 = std::strstr(version, "60") != nullptr;
  const bool is_54 = !is_60 && std::strstr(version, "54") != nullptr;
  const bool is_53 = !is_54 && std::strstr(version, "53") != nullptr;
  return {is_60, is_54, is_53};
}

owned_string idl_target(const char *envi_dir, const char *idl_dir, bool is_54) {
  if (idl_dir != nullptr)
    return str_format_new("%s", idl_dir);
  if (is_54)
    return str_format_new("%s%sidl86", envi_dir, "/");
  return str_format_new("%s%s..%s..", envi_dir, "/", "/");
}

} // namespace

int korvalen_install_uninstall_user_add(const char *theEnviDir, const char *theKorvalenDir,
                                        const char *idlDir, bool uninstall, const char *theInExt) {
  const version_marks marks = classify(theInExt);
  const bool is_known = marks.is_60 || marks.is_54 || marks.is_53;
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
                             idl_target(theEnviDir, idlDir, marks.is_54).get(), uninstall);
  return 1;
}

} // namespace korvalen
