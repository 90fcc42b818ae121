#include "korvalen/deploy/directory_step.h"

#include "korvalen/files/directories.h"
#include "korvalen/records/install_log.h"
#include "korvalen/text/strings.h"

namespace korvalen {

void create_and_copy(const char *source_dir, const char *target_dir) {
  fkorvCreateDir(target_dir);
  fdfCopyDirFiles(source_dir, target_dir, "*.*");
}

void run_directory_step(const directory_step &step, const char *source_base, const char *target_base,
                        bool uninstall) {
  const owned_string source = str_join_path(source_base, step.source);
  const owned_string target = str_join_path(target_base, step.target);

  if (step.core_file == core_file_removal::always ||
      (step.core_file == core_file_removal::on_install && !uninstall))
    delete_if_present(str_join_path(source.get(), "quorin_core.sav").get());
  delete_stale_files(uninstall ? step.stale_on_uninstall : step.stale_on_install, target_base);

  if (uninstall) {
    if (step.removes_target_on_uninstall)
      fdfRemoveDir(target.get());
    return;
  }
  if (step.logs_creation)
    log_line("fkorvCreateDir  = ", target.get());
  create_and_copy(source.get(), target.get());
}

} // namespace korvalen
