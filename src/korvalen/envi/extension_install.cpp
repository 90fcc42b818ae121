#include "korvalen/envi/extension_install.h"

#include "korvalen/deploy/envi_files.h"
#include "korvalen/deploy/extension_source.h"
#include "korvalen/deploy/idl_files.h"
#include "korvalen/envi/idl_directory.h"
#include "korvalen/patch/launch_script.h"
#include "korvalen/text/strings.h"

#include <cstdio>

namespace korvalen {

namespace {

// The root keeps its slash.
owned_string trimmed(const char *directory) {
  owned_string copy = str_format_new("%s", directory);
  str_remove_suffix(copy.get(), "/");
  return copy;
}

owned_string script_path(const char *base_dir, const char *script) {
  return str_format_new("%s/bin/%s", base_dir, script);
}

void print_progress(const char *text) {
  std::fputs(text, stdout);
  std::fflush(stdout);
}

bool install_into(const char *envi_dir, const char *product_dir, const char *init_dir) {
  for (const char *script : envi_launch_scripts)
    fkorvPatchEnviScript(script_path(envi_dir, script).get(), product_dir, init_dir);

  const owned_string idl_dir = find_idl_directory(envi_dir);
  if (!idl_dir)
    return false;
  copy_files_in_envi_dir_envi(extension_source(product_dir, extensions_version, "envi").get(), envi_dir,
                              false);
  copy_files_in_envi_dir_idl(extension_source(product_dir, extensions_version, "idl").get(), idl_dir.get(),
                             false);

  for (const char *script : idl_launch_scripts)
    fkorvPatchIdlScript(script_path(idl_dir.get(), script).get(), product_dir, init_dir);
  return true;
}

} // namespace

int fkorvInstallEnviExtensions(const char *envi_dir, const char *product_dir, const void * /*unused*/,
                               const char *init_dir) {
  print_progress("\n   Installing ENVI extensions... ");
  if (envi_dir != nullptr && envi_dir[0] != '\0') {
    const owned_string envi = trimmed(envi_dir);
    const owned_string product = trimmed(product_dir);
    if (!install_into(envi.get(), product.get(), init_dir))
      return 0;
  }
  print_progress("Done\n\n");
  return 1;
}

} // namespace korvalen
