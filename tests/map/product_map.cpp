// Prints in Graphviz's language what the installer takes from where and puts where, as its tables hold it.

#include "installer/command_line.h"
#include "korvalen/config/configuration_lines.h"
#include "korvalen/deploy/envi_files.h"
#include "korvalen/deploy/extension_source.h"
#include "korvalen/deploy/idl_files.h"
#include "korvalen/envi/extension_install.h"

#include <algorithm>
#include <iostream>
#include <set>
#include <span>
#include <string>
#include <string_view>

using namespace korvalen;

namespace {

// The places stand for themselves.
constexpr const char *idl_dir = "ENVI_DIR/idlMN";

using steps = std::span<const directory_step>;

// A box of the picture: its name, the color of its heading, the heading and what is said beside it.
struct box {
  const char *name;
  const char *color;
  std::string heading;
  const char *note;
};

// All boxes are equally wide, so that they stand in line.
void open_box(const box &drawn) {
  std::cout << drawn.name << " [label=<<table border='1' color='#d0d7de' cellborder='0' cellspacing='0'>\n"
            << "<tr><td colspan='2' align='left' cellpadding='5' width='350' bgcolor='" << drawn.color
            << "'><b>" << drawn.heading << "</b>  <font color='#57606a' point-size='10'>" << drawn.note
            << "</font></td></tr>\n";
}

// Arrows end at a row's port, or begin at that of its note.
void add_row(std::string_view port, std::string_view path, std::string_view note) {
  std::cout << "<tr><td align='left' cellpadding='3' port='" << port << "'><font face='monospace'>" << path
            << "</font></td><td align='right' cellpadding='3' port='" << port
            << " note'><font color='#a04000' point-size='10'>  " << note << "</font></td></tr>\n";
}

void close_box() {
  std::cout << "</table>>]\n";
}

// How many names the steps delete with one operation: that is, from one directory.
std::size_t count_stale_names(steps all, decltype(stale_list::delete_file) operation) {
  std::set<std::string_view> names;
  for (const directory_step &step : all)
    if (step.stale_on_install.delete_file == operation)
      names.insert(step.stale_on_install.names.begin(), step.stale_on_install.names.end());
  return names.size();
}

// A list belongs to the directory of the first step that has one with its operation; a later step may delete
// there too.
std::string stale_note(steps all, const directory_step &step) {
  const auto operation = step.stale_on_install.delete_file;
  const auto same = [operation](const directory_step &other) {
    return other.stale_on_install.delete_file == operation;
  };
  if (operation == nullptr || &*std::find_if(all.begin(), all.end(), same) != &step)
    return "";
  return std::to_string(count_stale_names(all, operation)) + " stale names go";
}

void add_sources(const box &drawn, steps all) {
  open_box(drawn);
  for (const directory_step &step : all)
    add_row(step.source, step.source,
            step.core_file == core_file_removal::never ? "" : "loses quorin_core.sav");
  close_box();
}

void add_targets(const box &drawn, steps all) {
  open_box(drawn);
  for (const directory_step &step : all)
    add_row(step.target, step.target, stale_note(all, step));
  close_box();
}

void add_arrows(const char *from, const char *to, steps all) {
  for (const directory_step &step : all)
    std::cout << from << ":\"" << step.source << " note\":e -> " << to << ":\"" << step.target << "\":w\n";
}

// One half of the product, from its directory into the host's.
void add_half(const char *half, const char *target_dir, steps all) {
  const std::string from = std::string("from_") + half;
  const std::string to = std::string("to_") + half;
  const owned_string source_dir = extension_source("PRODUCT_DIR", extensions_version, half);
  add_sources({from.c_str(), "#ddebfa", source_dir.get(), "*.*"}, all);
  add_targets({to.c_str(), "#fdebd0", target_dir, "mode 0755"}, all);
  add_arrows(from.c_str(), to.c_str(), all);
}

void add_scripts(std::string_view directory, std::span<const char *const> names) {
  for (const char *name : names)
    add_row(name, std::string(directory) + "/bin/" + name, "");
}

void add_layout(const char *layout, bool is_local) {
  char product_dir[] = "PRODUCT_DIR";
  const install_request request{product_dir, "ENVI_DIR", is_local};
  const std::string configuration = exported_init_directory(request) + "/" + configuration_file_name;
  const std::string port(layout);
  add_row(port + " configuration", configuration, layout);
  add_row(port + " uninstall", uninstall_script_path(request).get(), layout);
}

void add_init_directory() {
  open_box({"init_directory", "#e3f3e6", "init directory", "one of two layouts"});
  add_layout("system layout", false);
  add_layout("local layout", true);
  add_row("", "&nbsp;", ""); // As high as the box beside it.
  close_box();
}

void add_launch_scripts() {
  open_box({"launch_scripts", "#fdebd0", "launch scripts", "NAME_original keeps each"});
  add_scripts("ENVI_DIR", envi_launch_scripts);
  add_scripts(idl_dir, idl_launch_scripts);
  close_box();
}

void draw() {
  std::cout << "digraph \"What comes from where and goes where\" {\n"
               "rankdir=LR; ranksep=0.8; nodesep=0.2; pad=0.1; splines=line\n"
               "node [shape=plain; fontname=\"Helvetica,Arial,sans-serif\"; fontsize=11]\n"
               "edge [color=\"#4078c0\"; arrowsize=0.6; fontname=\"monospace\"; fontsize=10]\n";
  add_half("envi", "ENVI_DIR", envi_directory_steps());
  add_half("idl", idl_dir, idl_directory_steps());
  add_init_directory();
  add_launch_scripts();
  std::cout << "init_directory -> launch_scripts [dir=back; style=dashed; label=\"KORVALEN_INIT_DIR\"]\n"
               "{ rank=same; edge [style=invis]; from_envi -> from_idl -> init_directory }\n"
               "{ rank=same; edge [style=invis]; to_envi -> to_idl -> launch_scripts }\n"
               "}\n";
}

} // namespace

int main() {
  draw();
  return std::cout.flush() ? 0 : 1;
}
