#include "admin/host.h"

#include "korvalen/deploy/envi_files.h"
#include "korvalen/deploy/extension_source.h"
#include "korvalen/deploy/idl_files.h"
#include "korvalen/envi/extension_install.h"
#include "korvalen/envi/idl_directory.h"

#include <cstdlib>
#include <memory>
#include <span>

namespace korvalen::admin {

namespace {

void add_scripts(std::vector<launch_script> &scripts, const std::string &directory,
                 std::span<const char *const> names, bool is_envis) {
  for (const char *name : names) {
    const std::string path = directory + "/bin/" + name;
    scripts.push_back({path, path + "_original", is_envis});
  }
}

void add_deployments(std::vector<deployment> &deployments, std::span<const directory_step> steps,
                     const std::string &source, const std::string &target) {
  for (const directory_step &step : steps)
    deployments.push_back(
        {source + "/" + step.source, target + "/" + step.target, step.core_file != core_file_removal::never});
}

void add_real(std::vector<std::string> &directories, const std::string &directory) {
  if (const auto real = real_path(directory))
    directories.push_back(*real);
}

struct released_by_free {
  void operator()(char *text) const { std::free(text); }
};

} // namespace

std::optional<std::string> real_path(const std::string &path) {
  const std::unique_ptr<char, released_by_free> real(realpath(path.c_str(), nullptr));
  return real ? std::optional<std::string>(real.get()) : std::nullopt;
}

install_request request_of(const target &host) {
  return {const_cast<char *>(host.product_dir.c_str()), host.envi_dir ? host.envi_dir->c_str() : nullptr,
          host.local_layout};
}

std::string init_dir_of(const target &host) {
  return init_directory(request_of(host));
}

std::optional<std::string> idl_dir_of(const target &host) {
  if (!host.envi_dir)
    return std::nullopt;
  const owned_string found = find_idl_directory(host.envi_dir->c_str());
  return found ? std::optional<std::string>(found.get()) : std::nullopt;
}

std::vector<launch_script> launch_scripts_of(const target &host) {
  std::vector<launch_script> scripts;
  if (host.envi_dir)
    add_scripts(scripts, *host.envi_dir, envi_launch_scripts, true);
  if (const auto idl_dir = idl_dir_of(host))
    add_scripts(scripts, *idl_dir, idl_launch_scripts, false);
  return scripts;
}

std::string real_place(const std::string &path) {
  return joined(real_path_or_place(parent_of(path)), name_of(path));
}

std::string real_path_or_place(const std::string &path) {
  if (const auto real = real_path(path))
    return *real;
  return real_place(path);
}

std::string real_script_path(const launch_script &script) {
  return real_path_or_place(script.path);
}

std::string extensions_dir_of(const target &host) {
  return parent_of(extension_source(host.product_dir.c_str(), extensions_version, "envi").get());
}

std::vector<deployment> deployments_of(const target &host) {
  std::vector<deployment> deployments;
  const auto idl_dir = idl_dir_of(host);
  if (!idl_dir)
    return deployments;
  const char *const product_dir = host.product_dir.c_str();
  add_deployments(deployments, envi_directory_steps(),
                  extension_source(product_dir, extensions_version, "envi").get(), *host.envi_dir);
  add_deployments(deployments, idl_directory_steps(),
                  extension_source(product_dir, extensions_version, "idl").get(), *idl_dir);
  return deployments;
}

bool is_deployed_name(std::string_view name) {
  return !name.starts_with('.') && name.find('.') != std::string_view::npos;
}

std::vector<std::string> real_directories_of(const target &host) {
  std::vector<std::string> directories;
  add_real(directories, host.product_dir);
  add_real(directories, init_dir_of(host));
  if (host.envi_dir)
    add_real(directories, *host.envi_dir);
  return directories;
}

std::vector<std::string> written_directories_of(const target &host) {
  std::vector<std::string> directories;
  add_real(directories, init_dir_of(host));
  for (const launch_script &script : launch_scripts_of(host))
    add_real(directories, parent_of(real_script_path(script)));
  for (const deployment &step : deployments_of(host)) {
    add_real(directories, step.source);
    add_real(directories, step.target);
  }
  return directories;
}

bool holds_block(std::string_view script) {
  return script.find("KORVALEN_INIT_DIR") != std::string_view::npos;
}

bool is_stale(const tree &in, const launch_script &script) {
  const auto text = read_small(in, script.path, script_limit);
  const auto kept = read_small(in, script.backup, script_limit);
  return text && kept && *text != *kept && !holds_block(*text);
}

} // namespace korvalen::admin
