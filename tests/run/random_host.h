// Random product and ENVI trees, the same for the same seed, and what an installation must make of them.
#pragma once

#include "run/documented_lists.h"
#include "run/whole_run.h"

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace whole_runs {

class dice {
public:
  explicit dice(unsigned seed) : engine_(seed) {}
  std::size_t below(std::size_t limit) { return engine_() % limit; }
  bool chance(std::size_t percent) { return below(100) < percent; }
  template <typename T>
  const T &one_of(const std::vector<T> &values) {
    return values[below(values.size())];
  }
  std::string bytes(std::size_t longest) {
    std::string result(below(longest), '\0');
    for (char &byte : result)
      byte = static_cast<char>(below(256));
    return result;
  }

private:
  std::mt19937 engine_;
};

// A file below ENVI: its mode and its bytes.
using files = std::map<std::string, support::entry>;

struct random_host {
  std::string idl;                              // the IDL directory that must be chosen
  std::map<std::string, std::string> originals; // the launch scripts
  files installed;                              // every other file below ENVI after the installation
  std::vector<std::string> recorded;            // the placed files that the uninstall script must name
};

inline bool is_matched(const std::string &name) {
  return name.front() != '.' && name.find('.') != std::string::npos;
}

inline bool holds_kept_name(const std::string &path) {
  return std::any_of(kept_names.begin(), kept_names.end(),
                     [&path](const std::string &name) { return path.find(name) != std::string::npos; });
}

// Names that a shell takes as they stand.
inline std::string random_name(dice &d) {
  static const std::vector<std::string> stems = {"korvalen", "k", "Menu_2", "a.b", "x+y",    "new,old",
                                                 "50%",      "@", "-",      "=",   ".hidden"};
  static const std::vector<std::string> ends = {".sav", ".sav",    ".pro", ".",
                                                "",     ".tar.gz", ".SAV", "_original"};
  switch (d.below(8)) {
  case 0:
    return d.one_of(kept_names);
  case 1:
    return d.one_of(d.one_of(stale_directories).names);
  case 2:
    return "my_" + d.one_of(kept_names) + ".bak";
  default:
    return d.one_of(stems) + std::to_string(d.below(4)) + d.one_of(ends);
  }
}

inline std::string random_script(dice &d, const std::string &anchor) {
  static const std::vector<std::string> lines = {
      "E=/envi", "",          "   export E", "# a comment", "\texec $E \"$@\"", "LD_LIBRARY_PATH=$E exe_envi",
      "fi",      "trailing  "};
  std::string text = d.chance(80) ? "#!/bin/sh\n" : "";
  for (std::size_t i = d.below(8); i > 0; --i)
    text += d.one_of(lines) + "\n";
  if (d.chance(70))
    text += anchor + "\n";
  for (std::size_t i = d.below(8); i > 0; --i)
    text += d.one_of(lines) + "\n";
  return text + "last\n";
}

// The order of the steps matters: a file may be placed by one and deleted by a later one.
inline void expect_installation(random_host &expected, const std::map<std::string, files> &shipped,
                                const std::string &envi) {
  const auto below_envi = [&expected](const std::string &path) {
    return replaced(path, "IDL", expected.idl);
  };
  for (const deployed_directory &step : deployed_directories) {
    for (const stale_directory &stale : stale_directories)
      if (stale.before == step.target)
        for (const std::string &name : stale.names)
          expected.installed.erase(below_envi(stale.directory) + "/" + name);
    for (const auto &[name, file] : shipped.at(step.source)) {
      if (!is_matched(name) || (step.probed && name == "quorin_core.sav"))
        continue;
      const std::string target = below_envi(step.target) + "/" + name;
      expected.installed[target] = {"file", 0755, file.content};
      if (!holds_kept_name(envi + "/" + target))
        expected.recorded.push_back(target);
    }
  }
}

inline random_host make_random_host(unsigned seed, const std::string &product, const std::string &envi) {
  static const std::vector<mode_t> modes = {0644, 0644, 0755, 0600, 0444, 0};
  dice d(seed);
  random_host host;

  std::map<std::string, files> shipped;
  for (const deployed_directory &step : deployed_directories) {
    files &here = shipped[step.source];
    for (std::size_t i = d.chance(85) ? d.below(9) : 0; i > 0; --i)
      here[random_name(d)] = {"file", d.one_of(modes), d.bytes(d.chance(20) ? 20'000 : 200)};
    if (step.probed && d.chance(50))
      here["quorin_core.sav"] = {"file", 0644, "core"};
    for (const auto &[name, file] : here)
      support::write_file(product + "/auxiliary/envi_extensions_54/" + step.source + "/" + name, file.content,
                          file.mode);
  }

  std::vector<std::string> idl = {idl_directories[d.below(idl_directories.size())]};
  for (const std::string &other : idl_directories)
    if (d.chance(20))
      idl.push_back(other);
  host.idl = *std::find_if(idl_directories.begin(), idl_directories.end(), [&idl](const std::string &one) {
    return std::find(idl.begin(), idl.end(), one) != idl.end();
  });
  for (const std::string &one : idl)
    host.installed[one + "/version.txt"] = {"file", 0644, one};

  for (const char *name : {"envi", "envi_rt", "envitaskengine"})
    host.originals[std::string("bin/") + name] = random_script(d, "if [ \"$E\" = \"\" ]; then");
  for (const char *name : {"idl", "idlde"})
    host.originals[host.idl + "/bin/" + name] = random_script(d, "INSTALL_DIR=/i");
  for (const auto &[name, text] : host.originals)
    support::write_file(envi + "/" + name, text, d.chance(80) ? 0755 : 0555);

  // ENVI's own files, some under names of the product, some stale.
  for (const deployed_directory &step : deployed_directories)
    for (std::size_t i = d.below(6); i > 0; --i)
      host.installed[replaced(step.target, "IDL", host.idl) + "/" + random_name(d)] = {
          "file", d.one_of(modes), d.bytes(300)};
  for (const stale_directory &stale : stale_directories)
    for (const std::string &name : stale.names)
      if (d.chance(40))
        host.installed[replaced(stale.directory, "IDL", host.idl) + "/" + name] = {"file", d.one_of(modes),
                                                                                   "stale"};
  host.installed["data/own.dat"] = {"file", 0640, d.bytes(5'000)};
  for (const auto &[name, file] : host.installed)
    support::write_file(envi + "/" + name, file.content, file.mode);

  expect_installation(host, shipped, envi);
  return host;
}

} // namespace whole_runs
