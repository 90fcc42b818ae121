#include "installer/command_line.h"

#include "korvalen/envi/idl_directory.h"
#include "korvalen/records/uninstall_script.h"

#include <cstring>
#include <string_view>

namespace korvalen {

namespace {

constexpr const char *system_init_dir = "/etc/quorin";

// What a shell would act on when it runs the uninstall script or a launch script. Blanks are allowed.
constexpr std::string_view shell_characters = ";&|<>()$\\\"'*?[`";

// The deepest and longest of the directories that deployment makes below the IDL directory; those below the
// ENVI directory are shorter.
constexpr const char *deepest_idl_subdirectory = "help/online_help/Subsystems/Korvalen";

constexpr const char *too_long = "it is longer than 1,000 bytes or deeper than 100 directories";

constexpr const char *begins_with_dash = "it begins with \"-\"";

constexpr struct {
  std::string_view question;
  const char *text;
} answers[] = {
    {"--help", "usage: korvalen_installer PRODUCT_DIR [ENVI_DIR [LAYOUT]]\n"
               "       korvalen_installer --help | --version\n"
               "\n"
               "PRODUCT_DIR  the directory into which Korvalen was unpacked\n"
               "ENVI_DIR     the ENVI installation; without it, or when it is empty or holds\n"
               "             NotOK, no ENVI is touched\n"
               "LAYOUT       any text, even an empty one, chooses the local layout; without it,\n"
               "             or when it holds NotOK, the system layout\n"
               "\n"
               "What else begins with - is refused. The manual: man korvalen_installer\n"},
    {"--version", "korvalen_installer " KORVALEN_VERSION "\n"},
};

bool is_control(char byte) {
  return (byte >= '\0' && byte < ' ') || byte == '\x7f';
}

bool is_given(int argc, char **argv, int position) {
  return argc > position && std::strstr(argv[position], "NotOK") == nullptr;
}

const char *text_problem(std::string_view text) {
  if (text.empty())
    return "it is empty";
  if (text.starts_with('-'))
    return begins_with_dash;
  for (const char byte : text) {
    if (is_control(byte))
      return "it holds a control character";
    if (shell_characters.find(byte) != std::string_view::npos)
      return "it holds a character that a shell acts on";
  }
  return nullptr;
}

// Whether split_path would cut the path, so that it could not be made as a directory.
bool is_too_long_to_make(std::string_view path) {
  while (path.ends_with('/'))
    path.remove_suffix(1);
  std::size_t components = 0;
  for (std::size_t i = 0; i < path.size(); ++i)
    if (path[i] != '/' && (i == 0 || path[i - 1] == '/'))
      ++components;
  return path.size() > split_path_max_bytes || components > split_path_max_components;
}

const char *product_dir_problem(const install_request &request) {
  if (const char *const problem = text_problem(request.product_dir))
    return problem;
  if (std::strlen(uninstall_script_path(request).get()) >= uninstall_script_path_size)
    return "the path of its uninstall script is too long";
  if (request.local_layout && is_too_long_to_make(request.product_dir))
    return too_long;
  return nullptr;
}

const char *envi_dir_problem(const char *envi_dir) {
  if (const char *const problem = text_problem(envi_dir))
    return problem;
  if (is_too_long_to_make(envi_dir))
    return too_long;
  // Without an IDL directory nothing is made.
  const owned_string idl_dir = find_idl_directory(without_trailing_slash(envi_dir).c_str());
  if (!idl_dir)
    return nullptr;
  const owned_string deepest = str_join_path(idl_dir.get(), deepest_idl_subdirectory);
  if (is_too_long_to_make(deepest.get()))
    return "directories below it would be longer than 1,000 bytes or deeper than 100 directories";
  return nullptr;
}

// One line, whatever the argument holds.
owned_string refusal(const char *argument, std::string text, const char *problem) {
  for (char &byte : text)
    if (is_control(byte))
      byte = '?';
  return str_format_new("korvalen_installer: %s \"%s\" refused: %s", argument, text.c_str(), problem);
}

} // namespace

install_request read_command_line(int argc, char **argv) {
  return {argv[1], is_given(argc, argv, 2) ? argv[2] : nullptr, is_given(argc, argv, 3)};
}

bool installs_into_envi(const install_request &request) {
  return request.envi_dir != nullptr && request.envi_dir[0] != '\0';
}

owned_string uninstall_script_path(const install_request &request) {
  if (!request.local_layout)
    return str_join_path(system_init_dir, "korvalen_uninstall.sh");
  const std::string product_dir = without_trailing_slash(request.product_dir);
  // Wanted: the doubled slash before the script's name.
  return str_format_new("%s/..//korvalen_uninstall.sh", product_dir.c_str());
}

const char *init_directory(const install_request &request) {
  return request.local_layout ? request.product_dir : system_init_dir;
}

std::string exported_init_directory(const install_request &request) {
  return without_trailing_slash(init_directory(request));
}

owned_string find_refusal(const install_request &request) {
  if (const char *const problem = product_dir_problem(request))
    return refusal("product directory", request.product_dir, problem);
  if (!installs_into_envi(request))
    return nullptr;
  if (const char *const problem = envi_dir_problem(request.envi_dir))
    return refusal("ENVI directory", request.envi_dir, problem);
  return nullptr;
}

owned_string find_refusal(int argc, char **argv) {
  const install_request request = read_command_line(argc, argv);
  if (owned_string found = find_refusal(request))
    return found;
  if (request.local_layout && argv[3][0] == '-')
    return refusal("layout", argv[3], begins_with_dash);
  for (int position = 4; position < argc; ++position)
    if (argv[position][0] == '-')
      return refusal(("argument " + std::to_string(position)).c_str(), argv[position], begins_with_dash);
  return nullptr;
}

const char *find_answer(int argc, char **argv) {
  for (const auto &[question, text] : answers)
    if (argc == 2 && question == argv[1])
      return text;
  return nullptr;
}

} // namespace korvalen
