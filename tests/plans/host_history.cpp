// Earlier installations, and what ENVI went through after them.
#include "plans/host_changes.h"

#include "installer/installation.h"
#include "korvalen/files/file_copy.h"
#include "support/child.h"

namespace plans {

namespace fs = std::filesystem;
using support::write_file;

namespace {

// By the installer's own code, which need not wait here.
void install(const host &made, std::string product, bool local_layout) {
  support::call([&] {
    fs::current_path(made.disk.directory + "/setup");
    korvalen::set_install_waits(false);
    return korvalen::install({product.data(), made.envi.c_str(), local_layout});
  });
}

void install_the_same(host &made) {
  install(made, made.product, made.disk.local_layout);
}

void install_in_other_layout(host &made) {
  install(made, made.product, !made.disk.local_layout);
}

void install_other_product(host &made) {
  const std::string other = made.disk.directory + "/host/other_product";
  fs::create_directories(other + "/auxiliary");
  must_run({"cp", "-a", made.product + "/auxiliary", other});
  install(made, other, made.disk.local_layout);
}

// Some scripts stand as the host's maker ships them, written anew or put in the place of the old ones.
void upgrade_envi(host &made) {
  for (const std::string &script : launch_scripts_of(made)) {
    if (!made.d.chance(60))
      continue;
    if (made.d.chance(50))
      fs::remove(script);
    if (fs::is_directory(fs::path(script).parent_path()))
      write_file(script, whole_runs::random_script(made.d, made.d.chance(50) ? "if [ 1 ]" : "INSTALL_DIR=/n"),
                 made.d.chance(70) ? 0755 : 0555);
  }
}

void empty_backups(host &made) {
  for (const std::string &script : launch_scripts_of(made))
    if (made.d.chance(50) && fs::exists(script + "_original"))
      write_file(script + "_original", "");
}

void lose_backups(host &made) {
  for (const std::string &script : launch_scripts_of(made))
    if (made.d.chance(50))
      fs::remove(script + "_original");
}

void restore_backups(host &made) {
  for (const std::string &script : launch_scripts_of(made))
    if (made.d.chance(50) && fs::exists(script + "_original"))
      fs::copy_file(script + "_original", script, fs::copy_options::overwrite_existing);
}

// In the state and by the names with which it is planned: mostly nothing is left to be done.
void install_as_planned(host &made) {
  host planned = made;
  planned.envi = made.disk.envi;
  install(planned, made.disk.product, made.disk.local_layout);
}

constexpr host_change changes[] = {
    {"installed before", 22, install_the_same},
    {"installed before in the other layout", 12, install_in_other_layout},
    {"another product installed before", 12, install_other_product},
    {"ENVI upgraded", 25, upgrade_envi},
    {"empty backups", 6, empty_backups},
    {"backups lost", 6, lose_backups},
    {"scripts restored by hand", 6, restore_backups},
};

constexpr host_change last_changes[] = {
    {"installed as planned already", 8, install_as_planned},
};

} // namespace

std::span<const host_change> history_changes() {
  return changes;
}

std::span<const host_change> last_history_changes() {
  return last_changes;
}

} // namespace plans
