#include "admin/report.h"

#include "admin/texts.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <sstream>
#include <vector>

namespace korvalen::admin {

namespace {

struct look {
  const char *word;
  const char *color;
};

constexpr look new_look = {"new", "32"};
constexpr look replaced_look = {"replaced", "33"};
constexpr look patched_look = {"patched", "36"};
constexpr look removed_look = {"removed", "31"};
constexpr look mode_look = {"mode", "35"};
constexpr look owner_look = {"owner", "35"};

look look_of(const change &told, const text_style &style) {
  switch (kind_of(told)) {
  case change_kind::created:
    return new_look;
  case change_kind::removed:
    return removed_look;
  case change_kind::mode:
    return mode_look;
  case change_kind::owner:
    return owner_look;
  default:
    return style.is_launch_script(told.path) ? patched_look : replaced_look;
  }
}

std::string colored(const std::string &text, const char *color, const text_style &style) {
  if (!style.has_colors || *color == '\0')
    return text;
  return "\x1b[" + std::string(color) + "m" + text + "\x1b[0m";
}

// What is not seen from the word alone.
std::string detail_of(const change &told) {
  std::array<char, 64> text{};
  if (kind_of(told) == change_kind::mode)
    std::snprintf(text.data(), text.size(), "  (%04o, was %04o)", told.after.mode, told.before.mode);
  if (kind_of(told) == change_kind::owner)
    std::snprintf(text.data(), text.size(), "  (%u:%u, was %u:%u)", told.after.owner, told.after.group,
                  told.before.owner, told.before.group);
  return text.data();
}

std::string shown_path(const change &told) {
  const state &shown = told.after.type == file_type::absent ? told.before : told.after;
  return visible(told.path) + (shown.type == file_type::directory ? "/" : "");
}

void write_lines(std::ostream &out, const std::string &text, const text_style &style,
                 const char *(*color_of)(const std::string &line)) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    out << "      " << colored(visible(line, true), color_of(line), style) << '\n';
}

const char *diff_color(const std::string &line) {
  if (line.starts_with('+'))
    return line.starts_with("+++ ") ? "1" : "32";
  if (line.starts_with('-'))
    return line.starts_with("--- ") ? "1" : "31";
  return line.starts_with('@') ? "36" : "";
}

const char *no_color(const std::string & /*line*/) {
  return "";
}

void write_change(std::ostream &out, const report &told, const change &one, const text_style &style) {
  const look shown = look_of(one, style);
  const std::string word = std::string(shown.word) + std::string(10 - std::string(shown.word).size(), ' ');
  out << "  " << colored(word, shown.color, style) << shown_path(one) << detail_of(one) << '\n';
  if (style.is_launch_script(one.path))
    write_lines(out, told.diff_of(one), style, diff_color);
}

void write_installer(std::ostream &out, const outcome &installer, tense changes_are,
                     const text_style &style) {
  const bool has_run = changes_are == tense::are;
  out << (has_run ? "\nThe installer printed:\n" : "\nThe installer would print:\n");
  write_lines(out, installer.output, style, no_color);
  if (!installer.errors.empty()) {
    out << "  and on standard error:\n";
    write_lines(out, installer.errors, style, no_color);
  }
  out << (has_run ? "  and ended with status " : "  and end with status ") << installer.status << ".\n";
}

// "3 new, 1 removed" in a fixed order; empty when nothing changes.
std::string summary(const report &told, const text_style &style) {
  std::map<std::string, int> counts;
  for (const change &one : told.changes)
    if (kind_of(one) != change_kind::none)
      ++counts[look_of(one, style).word];
  std::string text;
  for (const look &shown : {new_look, replaced_look, patched_look, removed_look, mode_look, owner_look})
    if (const auto found = counts.find(shown.word); found != counts.end())
      text += (text.empty() ? "" : ", ") + std::to_string(found->second) + " " + shown.word;
  return text;
}

// Warnings that say the same stand together, each of their paths on a line of its own.
using warning_group = std::vector<const warning *>;

std::vector<warning_group> grouped(const std::vector<warning> &warnings) {
  std::vector<warning_group> groups;
  for (const warning &one : warnings) {
    const auto same = std::find_if(groups.begin(), groups.end(), [&](const warning_group &group) {
      return group.front()->code == one.code && group.front()->text == one.text;
    });
    if (same == groups.end())
      groups.push_back({&one});
    else
      same->push_back(&one);
  }
  return groups;
}

void write_paths(std::ostream &out, const warning_group &group) {
  if (group.size() == 1) {
    const std::string &path = group.front()->path;
    if (!path.empty())
      out << ' ' << visible(path);
    out << '\n';
    return;
  }
  out << ' ' << group.size() << " times\n";
  for (const warning *const one : group)
    out << "    " << visible(one->path) << '\n';
}

void write_warnings(std::ostream &out, const warning_group &group, const text_style &style) {
  const warning &first = *group.front();
  const char *const heading = first.refuses ? "warning that refuses an installation" : "warning";
  out << '\n' << colored(heading, first.refuses ? "31" : "33", style) << " [" << first.code << "]";
  write_paths(out, group);
  out << "  " << visible(first.text) << ".\n";
}

} // namespace

void write_text(std::ostream &out, const report &told, const text_style &style) {
  for (const change &one : told.changes)
    if (kind_of(one) != change_kind::none)
      write_change(out, told, one, style);
  if (told.installer)
    write_installer(out, *told.installer, told.changes_are, style);
  const std::string counts = summary(told, style);
  if (!counts.empty())
    out << '\n' << counts << ".\n";
  for (const warning_group &group : grouped(told.warnings))
    write_warnings(out, group, style);
  for (const std::string &note : told.notes)
    out << '\n' << visible(note) << ".\n";
}

} // namespace korvalen::admin
