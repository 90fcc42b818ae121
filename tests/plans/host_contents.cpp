// Files and directories that are not as they were unpacked.
#include "plans/host_changes.h"

#include <algorithm>
#include <unistd.h>

namespace plans {

namespace fs = std::filesystem;
using support::write_file;
using namespace std::string_literals;

namespace {

void ship_odd_names(host &made) {
  static const std::vector<std::string> names = {
      "with blank.sav",  "tab\there.pro",   "quote's.sav",  "\"both\".cat",
      "dollar$HOME.sav", "back\\slash.sav", "\xff\xfe.sav", "gr\xc3\xbc\xc3\x9f.sav",
      "semi;colon.dat",  "-dash.sav",       "star*.sav",    "\x1b[31m.pro",
      "a&b.xml",         "(par).sav",       "~tilde.sav",   "#hash.sav",
      "UPPER.SAV",       "lower.sav",       "_under.sav"};
  for (std::size_t i = 1 + made.d.below(6); i > 0; --i)
    write_file(a_source(made) + "/" + made.d.one_of(names), made.d.bytes(300));
}

// The listing breaks it in two.
void ship_name_of_two_lines(host &made) {
  write_file(a_source(made) + "/two\nlines.sav", "x");
}

// The listing shows what is in it.
void ship_directory_with_dot(host &made) {
  write_file(a_source(made) + "/old.files/inner.sav", "x");
}

void ship_links(host &made) {
  for (std::size_t i = 1 + made.d.below(3); i > 0; --i) {
    const std::string file = any_of(made, files_below(made.product));
    const std::string link = a_source(made) + "/" + new_name(made, "link") + ".sav";
    if (!file.empty())
      put_link(made, file, link);
  }
}

void ship_dangling_link(host &made) {
  put_link(made, made.disk.directory + "/outside/nothing", a_source(made) + "/gone.sav");
}

// Longer than what a difference is told of.
void make_large_files(host &made) {
  std::string text;
  while (text.size() < 1'200'000)
    text += "line " + std::to_string(made.d.below(1'000'000)) + "\n";
  const std::string name = made.d.chance(50) ? "large.sav" : "large.txt";
  const std::size_t step = made.d.below(whole_runs::deployed_directories.size());
  write_file(made.product + "/auxiliary/envi_extensions_54/" + whole_runs::deployed_directories[step].source +
                 "/" + name,
             text);
  if (made.d.chance(60))
    write_file(targets_of(made)[step] + "/" + name, made.d.chance(50) ? "small\n" : text + "more\n");
  if (const std::string script = any_script(made); !script.empty() && made.d.chance(30))
    write_file(script, "#!/bin/sh\nif [ x ]; then\n" + text, 0755);
}

// The same bytes stand there already, or nearly the same, at times with the very mode.
void place_beforehand(host &made) {
  const std::vector<std::string> targets = targets_of(made);
  for (std::size_t i = 0; i < targets.size(); ++i) {
    const std::string source =
        made.product + "/auxiliary/envi_extensions_54/" + whole_runs::deployed_directories[i].source;
    if (!fs::is_directory(source) || !made.d.chance(50))
      continue;
    for (const std::string &file : files_below(source)) {
      const fs::path target = targets[i] / fs::path(file).lexically_relative(source);
      std::string bytes = support::read_file(file);
      if (made.d.chance(30) && !bytes.empty())
        bytes.back() ^= 1;
      if (!stands(target.string()) && target.parent_path() == fs::path(targets[i]))
        write_file(target, bytes, made.d.chance(70) ? 0755 : 0644);
    }
  }
}

// What is removed as stale and placed again stands there as it will, but for its owner.
void place_stale_names_beforehand(host &made) {
  for (const whole_runs::stale_directory &stale : whole_runs::stale_directories) {
    const auto step = std::find_if(
        whole_runs::deployed_directories.begin(), whole_runs::deployed_directories.end(),
        [&](const whole_runs::deployed_directory &one) { return one.target == stale.directory; });
    const std::string name = "/" + stale.names.back();
    const std::string target =
        targets_of(made)[static_cast<std::size_t>(step - whole_runs::deployed_directories.begin())] + name;
    write_file(made.product + "/auxiliary/envi_extensions_54/" + step->source + name, "the same\n");
    write_file(target, "the same\n", 0755);
    must(lchown(target.c_str(), 7, made.d.chance(50) ? 0 : 8), "chown " + target);
  }
}

void remove_targets(host &made) {
  for (const std::string &target : targets_of(made))
    if (made.d.chance(30))
      fs::remove_all(target);
}

void lose_idl(host &made) {
  fs::rename(made.idl, made.envi + "/some_idl");
}

void lose_sources(host &made) {
  fs::remove_all(made.product + "/auxiliary/envi_extensions_54" + (made.d.chance(50) ? "" : "/envi"));
}

void lose_scripts(host &made) {
  for (const std::string &script : launch_scripts_of(made))
    if (made.d.chance(35))
      fs::remove(script);
}

void write_odd_scripts(host &made) {
  static const std::vector<std::string> texts = {
      "",
      "\n",
      "#!/bin/sh\r\nif [ x ]; then\r\n:\r\nfi\r\nINSTALL_DIR=x\r\n",
      "#!/bin/sh\nif [ x ]; then :; fi\nINSTALL_DIR=/no/line/end",
      "no anchor at all\n",
      "#!/bin/sh\nif [ \"$KORVALEN_INIT_DIR\" = \"\" ]; then\n   KORVALEN_INIT_DIR=/old\n   export "
      "X\nfi\n\nrest\n",
      "KORVALEN_INIT_DIR=/older\nexport KORVALEN_INIT_DIR\n\nINSTALL_DIR=x\nLD_LIBRARY_PATH=1 "
      "exe_envi\na\nb\nc\nd\n",
      "if [ x ]; then\n\xff\xfe not UTF-8 \x80\nINSTALL_DIR=x\n",
      "if [ x ]; then\0 behind NUL\nINSTALL_DIR=x\n"s,
      "INSTALL_DIR=x\nif [ long ]; " + std::string(5'000, 'y') + "\n",
      "\\ No newline at end of file\n--- a\n+++ b\n@@ -1 +1 @@\nif [ x ]\nINSTALL_DIR=\n",
  };
  for (const std::string &script : launch_scripts_of(made))
    if (made.d.chance(45))
      write_file(script, made.d.one_of(texts), made.d.chance(70) ? 0755 : 0444);
}

// A backup without an installation: of another script, or empty, or the same.
void write_backups(host &made) {
  for (const std::string &script : launch_scripts_of(made))
    if (made.d.chance(35) && fs::exists(script)) {
      const std::string own = support::read_file(script);
      write_file(script + "_original",
                 made.d.chance(20)   ? own
                 : made.d.chance(25) ? ""
                                     : "#!/bin/sh\nolder\nif [ x ]\n",
                 made.d.chance(60) ? 0644 : 0400);
    }
}

void write_unfinished_backups(host &made) {
  if (const std::string script = any_script(made); !script.empty())
    write_file(script + "_original.new", "unfinished", 0600);
}

// An empty one is removed like a stale file.
void make_stale_directories(host &made) {
  for (std::size_t i = 1 + made.d.below(3); i > 0; --i) {
    const whole_runs::stale_directory &stale = made.d.one_of(whole_runs::stale_directories);
    const std::string path = (stale.directory.starts_with("IDL/") ? made.idl + stale.directory.substr(3)
                                                                  : made.envi + "/" + stale.directory) +
                             "/" + made.d.one_of(stale.names);
    fs::remove_all(path);
    fs::create_directories(path + (made.d.chance(30) ? "/not_empty" : ""));
  }
}

// Nothing can be copied there.
void put_directory_in_place_of_file(host &made) {
  const std::size_t step = made.d.below(whole_runs::deployed_directories.size());
  write_file(made.product + "/auxiliary/envi_extensions_54/" + whole_runs::deployed_directories[step].source +
                 "/taken.sav",
             "x");
  fs::create_directories(targets_of(made)[step] + "/taken.sav");
}

void put_file_in_place_of_directory(host &made) {
  const std::string target = made.d.one_of(targets_of(made));
  fs::remove_all(target);
  write_file(target, "a file");
}

void write_init_files(host &made) {
  static const std::vector<mode_t> modes = {0644, 0600, 0444, 04755, 02664, 0};
  const std::string script = made.disk.local_layout ? made.product + "/../korvalen_uninstall.sh"
                                                    : "/etc/quorin/korvalen_uninstall.sh";
  write_file(init_dir_of(made) + "/Korvalen_configuration.ini", made.d.chance(80) ? "old\n" : "",
             made.d.one_of(modes));
  if (made.d.chance(70))
    write_file(script, "rm old\n", made.d.one_of(modes));
}

void bar_configuration(host &made) {
  const std::string file = init_dir_of(made) + "/Korvalen_configuration.ini";
  if (!made.disk.local_layout && made.d.chance(50)) {
    fs::remove_all("/etc/quorin");
    write_file("/etc/quorin", "a file");
  } else {
    fs::remove_all(file);
    fs::create_directories(file);
  }
}

void leave_out_envi(host &made) {
  made.disk.envi.clear();
}

void name_no_envi(host &made) {
  if (!made.disk.envi.empty())
    made.disk.envi += made.d.chance(50) ? "/none" : "/data/own.dat";
}

void name_no_product(host &made) {
  made.disk.product += "_none";
}

// The installer refuses it.
void name_odd_product(host &made) {
  made.disk.product += made.d.chance(50) ? "'s" : " \x07";
}

void add_blank_to_product(host &made) {
  const std::string named = made.product + " 5";
  fs::rename(made.product, named);
  made.product = made.disk.product = named;
}

constexpr host_change changes[] = {
    {"a product with a blank in its name", 5, add_blank_to_product},
    {"odd names in the sources", 40, ship_odd_names},
    {"a source with a line end in its name", 3, ship_name_of_two_lines},
    {"a source directory with a dot in its name", 4, ship_directory_with_dot},
    {"links in the sources", 20, ship_links},
    {"a dangling link in the sources", 4, ship_dangling_link},
    {"placed files already there", 30, place_beforehand},
    {"stale files that are placed again", 10, place_stale_names_beforehand},
    {"files above a MiB", 8, make_large_files},
    {"target directories missing", 35, remove_targets},
    {"sources missing", 6, lose_sources},
    {"launch scripts missing", 12, lose_scripts},
    {"odd launch scripts", 40, write_odd_scripts},
    {"backups without an installation", 15, write_backups},
    {"unfinished backups", 10, write_unfinished_backups},
    {"directories under stale names", 15, make_stale_directories},
    {"a directory in place of a placed file", 3, put_directory_in_place_of_file},
    {"a file in place of a target directory", 3, put_file_in_place_of_directory},
    {"configuration and uninstall script there already", 25, write_init_files},
    {"no configuration file possible", 5, bar_configuration},
    {"no IDL directory", 5, lose_idl},
    {"without ENVI", 8, leave_out_envi},
};

constexpr host_change argument_changes[] = {
    {"an ENVI directory that is none", 2, name_no_envi},
    {"a product directory that does not exist", 2, name_no_product},
    {"a product directory that is refused", 2, name_odd_product},
};

} // namespace

std::span<const host_change> content_changes() {
  return changes;
}

std::span<const host_change> naming_changes() {
  return argument_changes;
}

} // namespace plans
