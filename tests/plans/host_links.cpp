// Symbolic links and further names of files.
#include "plans/host_changes.h"

#include <system_error>
#include <unistd.h>

namespace plans {

namespace fs = std::filesystem;

namespace {

void move_scripts(host &made) {
  for (std::size_t i = 1 + made.d.below(2); i > 0; --i)
    if (const std::string script = any_script(made); !script.empty())
      replace_by_link(made, script);
}

// One script is a link to another one.
void make_script_a_link_to_another(host &made) {
  const std::string script = any_script(made);
  const std::string other = any_script(made);
  if (script.empty() || fs::equivalent(script, other))
    return;
  fs::remove(script);
  put_link(made, other, script);
}

void move_directories(host &made) {
  std::vector<std::string> directories = targets_of(made);
  directories.insert(directories.end(), {made.envi + "/bin", made.idl + "/bin", made.envi + "/resource",
                                         made.idl, made.product + "/auxiliary", made.idl + "/lib"});
  for (std::size_t i = 1 + made.d.below(3); i > 0; --i) {
    const std::string directory = made.d.one_of(directories);
    if (fs::is_directory(fs::symlink_status(directory)))
      replace_by_link(made, directory);
  }
}

void make_dangling_script(host &made) {
  const std::string script = any_script(made);
  if (script.empty())
    return;
  fs::remove(script);
  put_link(made, made.disk.directory + "/outside/" + (made.d.chance(50) ? "none/" : "") + "nothing", script);
}

void link_backups(host &made) {
  const std::string script = any_script(made);
  if (script.empty())
    return;
  fs::remove(script + "_original");
  switch (made.d.below(4)) {
  case 0:
    return put_link(made, script, script + "_original");
  case 1:
    return put_link(made, made.disk.directory + "/outside/no_backup", script + "_original");
  case 2:
    return fs::create_hard_link(fs::canonical(script), script + "_original");
  default:
    const std::string kept = made.disk.directory + "/outside/" + new_name(made, "backup");
    support::write_file(kept, "#!/bin/sh\nkept elsewhere\nif [ x ]\nINSTALL_DIR=\n");
    put_link(made, kept, script + "_original");
  }
}

// Files that are placed over, or removed as stale, and are links.
void link_targets(host &made) {
  for (const std::string &target : targets_of(made)) {
    if (!made.d.chance(30) || !fs::is_directory(target))
      continue;
    const std::string file = any_of(made, files_below(target));
    if (file.empty())
      continue;
    if (made.d.chance(70)) {
      replace_by_link(made, file);
    } else {
      fs::remove(file);
      put_link(made, made.disk.directory + "/outside/" + new_name(made, "none"), file);
    }
  }
}

void link_init_files(host &made) {
  const std::string file = init_dir_of(made) + "/Korvalen_configuration.ini";
  if (!fs::is_directory(init_dir_of(made)) || stands(file))
    return;
  const std::string target = made.disk.directory + "/outside/" + new_name(made, "configuration");
  if (made.d.chance(60))
    support::write_file(target, "old\n", 0640);
  put_link(made, target, file);
}

void link_init_dir(host &made) {
  if (made.disk.local_layout || stands("/etc/quorin"))
    return;
  fs::create_directory(made.disk.directory + "/outside/quorin");
  put_link(made, made.disk.directory + "/outside/quorin", "/etc/quorin");
}

void name_link_to_envi(host &made) {
  if (made.disk.envi != made.envi)
    return;
  made.disk.envi = made.disk.directory + "/host/current";
  put_link(made, made.envi, made.disk.envi);
}

// Its uninstall script lies beside the directory itself, not beside the link.
void name_link_to_product(host &made) {
  if (made.disk.product != made.product)
    return;
  made.disk.product = made.disk.directory + "/outside/unpacked";
  put_link(made, made.product, made.disk.product);
}

std::string place_for_second_name(host &made, const std::string &file) {
  switch (made.d.below(6)) {
  case 0:
    return fs::path(file).parent_path().string();
  case 1:
    return any_of(made, directories_below(made.product));
  case 2:
  case 3:
    return made.disk.directory + "/elsewhere";
  default:
    return any_of(made, directories_below(made.envi));
  }
}

void add_second_name(host &made, const std::string &file) {
  const std::string place = place_for_second_name(made, file);
  const std::string name = place + "/" + new_name(made, "second") + (made.d.chance(40) ? ".sav" : "");
  if (!place.empty())
    must(link(file.c_str(), name.c_str()), "link " + name);
}

void give_second_names(host &made) {
  for (std::size_t i = 1 + made.d.below(5); i > 0; --i) {
    const std::string file =
        any_of(made, files_below(made.d.chance(75)   ? made.envi
                                 : made.d.chance(50) ? made.product
                                                     : made.disk.directory + "/outside"));
    if (!file.empty())
      add_second_name(made, file);
  }
  if (fs::is_directory("/etc/quorin") && made.d.chance(50))
    for (const std::string &file : files_below("/etc/quorin"))
      must(link(file.c_str(), (file + ".second").c_str()), "link " + file);
}

// Of the script itself, wherever a link leads.
void give_scripts_second_names(host &made) {
  for (const std::string &script : launch_scripts_of(made)) {
    if (!fs::exists(script) || !made.d.chance(50))
      continue;
    const std::string file = fs::canonical(script).string();
    add_second_name(made, file);
    if (made.d.chance(40))
      must(link(file.c_str(), (file + ".beside" + std::to_string(++made.numbered)).c_str()), "link " + file);
  }
}

// Two launch scripts, or a script and a file that is placed, are one file.
void join_files(host &made) {
  const std::string script = any_script(made);
  const std::string other = made.d.chance(50) ? any_script(made) : any_of(made, files_below(made.envi));
  if (script.empty() || other.empty() || fs::equivalent(script, other))
    return;
  fs::remove(script);
  must(link(fs::canonical(other).c_str(), script.c_str()), "link " + script);
}

// A file of the product is the very file that it would be copied into.
void join_product_and_envi(host &made) {
  const std::size_t step = made.d.below(whole_runs::deployed_directories.size());
  const std::string source = made.product + "/auxiliary/envi_extensions_54/" +
                             whole_runs::deployed_directories[step].source + "/joined.sav";
  const std::string target = targets_of(made)[step] + "/joined.sav";
  support::write_file(source, "joined\n", 0600);
  std::error_code no_directory; // where a file was put in its place
  fs::create_directories(fs::path(target).parent_path(), no_directory);
  if (!no_directory && !stands(target))
    must(link(source.c_str(), target.c_str()), "link " + target);
}

constexpr host_change changes[] = {
    {"two files in one", 8, join_files},
    {"a script that is a link to another one", 5, make_script_a_link_to_another},
    {"scripts moved out, links left", 22, move_scripts},
    {"directories moved out, links left", 22, move_directories},
    {"a dangling link in place of a script", 5, make_dangling_script},
    {"links and names in place of backups", 10, link_backups},
    {"links in place of placed or stale files", 20, link_targets},
    {"links in place of init files", 8, link_init_files},
    {"a link in place of the init directory", 4, link_init_dir},
    {"product and ENVI share a file", 6, join_product_and_envi},
    {"second names", 40, give_second_names},
    {"scripts with second names", 18, give_scripts_second_names},
    {"ENVI named by a link", 10, name_link_to_envi},
    {"the product named by a link", 8, name_link_to_product},
};

} // namespace

std::span<const host_change> link_changes() {
  return changes;
}

} // namespace plans
