#include "admin/command_line.h"

#include "admin/warnings.h"
#include "installer/command_line.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include <CLI/CLI.hpp>

namespace korvalen::admin {

namespace {

constexpr const char *description =
    "Shows beforehand what korvalen_installer would change, installs all or nothing, checks, and takes back.";
constexpr const char *man_page = "The man page: man korvalen_admin";
constexpr const char *version = "korvalen_admin " KORVALEN_VERSION;

constexpr std::pair<std::string_view, color_choice> color_choices[] = {
    {"auto", color_choice::automatic}, {"always", color_choice::always}, {"never", color_choice::never}};

constexpr std::pair<const char *, const char *> commands[] = {
    {"plan", "Show every change that an installation would make"},
    {"install", "Install all or nothing, and put it on record"},
    {"verify", "Check that an installation stands as it was left"},
    {"uninstall", "Bring back exactly what was before"},
};

struct given {
  command made;
  std::string product_dir;
  std::string envi_dir;
  std::string color = "auto";
};

std::vector<std::string> color_names() {
  std::vector<std::string> names;
  for (const auto &[name, choice] : color_choices)
    names.emplace_back(name);
  return names;
}

color_choice color_named(std::string_view wanted) {
  return std::find_if(std::begin(color_choices), std::end(color_choices),
                      [wanted](const auto &color) { return color.first == wanted; })
      ->second;
}

CLI::Option *add_common_arguments(CLI::App &app, given &arguments) {
  app.add_flag("--local", arguments.made.host.local_layout, "The local layout: nothing goes to /etc");
  app.add_flag("--json", arguments.made.json, "One JSON object on standard output");
  app.add_option("--color", arguments.color, "auto (on a terminal), always or never")
      ->type_name("WHEN")
      ->check(CLI::IsMember(color_names()).description(""));
  app.add_option("PRODUCT_DIR", arguments.product_dir, "The directory into which the product was unpacked")
      ->required()
      ->type_name("");
  return app
      .add_option("ENVI_DIR", arguments.envi_dir, "The ENVI installation; without it, no ENVI is touched")
      ->type_name("");
}

// What the installer says of the request, without its name.
std::string refusal_of(const target &host) {
  const owned_string refusal = find_refusal(request_of(host));
  if (!refusal)
    return "";
  return refusal.get() + std::string_view("korvalen_installer: ").size();
}

// The installer would take the first for a present directory to pass over, the second for an absent one.
void refuse_unusable_envi_dir(const std::string &envi_dir) {
  if (envi_dir.empty())
    throw failure("ENVI directory \"\" refused: it is empty; leave it out to touch no ENVI");
  if (envi_dir.find("NotOK") != std::string::npos)
    throw failure("ENVI directory \"" + envi_dir +
                  "\" refused: it holds NotOK, which means none; leave it out to touch no ENVI");
}

void parse(CLI::App &app, int argc, char **argv) {
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForVersion &) {
    throw answer(version);
  } catch (const CLI::CallForHelp &) {
    throw answer(app.help());
  } catch (const CLI::ParseError &error) {
    throw failure(error.what());
  }
}

std::string absolute(const std::string &path) {
  if (path.starts_with('/'))
    return plain_path(path, "/");
  std::error_code problem;
  const std::filesystem::path directory = std::filesystem::current_path(problem);
  if (problem)
    throw failure("cannot tell the current directory: " + problem.message());
  return plain_path(path, directory.string());
}

} // namespace

std::string plain_path(const std::string &path, const std::string &directory) {
  std::string whole = path;
  if (!path.starts_with('/'))
    whole.insert(0, directory + "/");
  std::istringstream components(whole);
  std::string plain;
  for (std::string component; std::getline(components, component, '/');)
    if (!component.empty() && component != ".")
      plain += "/" + component;
  if (plain.empty())
    plain = "/";
  return plain;
}

std::string named_command(int argc, char **argv) {
  const std::string_view first = argc > 1 ? argv[1] : "";
  const bool is_one = std::any_of(std::begin(commands), std::end(commands),
                                  [first](const auto &one) { return one.first == first; });
  return std::string(is_one ? first : "");
}

bool asks_for_json(int argc, char **argv) {
  return std::any_of(argv + 1, argv + argc, [](std::string_view argument) { return argument == "--json"; });
}

// Its own text would not say which.
void refuse_unknown_command(int argc, char **argv) {
  const std::string_view first = argc > 1 ? argv[1] : "";
  if (first.starts_with('-'))
    return;
  if (!named_command(argc, argv).empty())
    return;
  std::string problem = "no command";
  if (!first.empty())
    problem = "unknown command \"" + std::string(first) + "\"";
  throw failure(problem +
                "; the commands are plan, install, verify and uninstall; see korvalen_admin --help");
}

command read_arguments(int argc, char **argv) {
  refuse_unknown_command(argc, argv);
  given arguments;
  CLI::App app(description, "korvalen_admin");
  app.set_version_flag("--version", version);
  app.set_help_flag("--help", "Print this");
  app.require_subcommand(1);
  app.footer(man_page);
  std::map<std::string, CLI::Option *> envi_dirs;
  for (const auto &[name, purpose] : commands)
    envi_dirs[name] = add_common_arguments(*app.add_subcommand(name, purpose), arguments);
  app.get_subcommand("install")
      ->add_option("--force", arguments.made.forced, "Install in spite of the warning with this code")
      ->type_name("CODE")
      ->allow_extra_args(false)
      ->check(CLI::IsMember(refusing_codes()).description(""));
  app.get_subcommand("uninstall")
      ->add_flag("--plan", arguments.made.only_plan, "Show all of it and touch nothing");
  parse(app, argc, argv);

  command &made = arguments.made;
  made.color = color_named(arguments.color);
  made.name = app.get_subcommands().front()->get_name();
  if (arguments.product_dir.empty())
    throw failure("product directory \"\" refused: it is empty");
  made.host.product_dir = absolute(arguments.product_dir);
  if (envi_dirs.at(made.name)->count() > 0) {
    refuse_unusable_envi_dir(arguments.envi_dir);
    made.host.envi_dir = absolute(arguments.envi_dir);
  }
  if (const std::string refusal = refusal_of(made.host); !refusal.empty())
    throw failure(refusal);
  return made;
}

} // namespace korvalen::admin
