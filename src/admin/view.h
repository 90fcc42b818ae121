// A copy-on-write view of the whole disk, in which code can run that believes to change the disk.
//
// A private mount namespace holds it: every mount that can be written is covered by an overlay of itself, all
// others come back read-only, and no device but /dev/null can be opened in it. What is written in the view
// goes to a scratch directory and is gone with the view.
#pragma once

#include "admin/mounts.h"
#include "admin/trees.h"

#include <cstdint>
#include <string>
#include <vector>

namespace korvalen::admin {

// A mount that is covered.
struct layer {
  mounted mount;
  std::string changes; // the directory that holds what was written, of this process's root directory
  bool joins_names;    // whether what is written under one name of a file is seen under its other names
};

// A mount that could be written on the disk and cannot in the view, or that the view lacks.
struct bare_mount {
  mounted mount;
  std::string reason;
};

// Where the scratch directory is made.
struct scratch_place {
  std::string directory;      // an existing directory on disk; empty for one in memory
  std::uint64_t memory_limit; // of a scratch directory in memory, in bytes
};

class view {
public:
  // Enters a mount namespace of its own and builds the view there. Throws a failure, and is back where it
  // was, when the kernel or its rules refuse.
  explicit view(const scratch_place &scratch);
  // Leaves the namespace, which takes the view with it.
  ~view();
  view(const view &) = delete;
  view &operator=(const view &) = delete;

  const tree &disk() const { return disk_; }
  const tree &inside() const { return inside_; }
  const std::vector<layer> &layers() const { return layers_; }
  const std::vector<bare_mount> &bare_mounts() const { return bare_mounts_; }
  const std::vector<mounted> &mounts() const { return mounts_; }
  // The scratch directory, of this process's root directory.
  const std::string &scratch() const { return scratch_; }
  // An empty directory of the view, to be the current directory of what runs in it.
  static std::string run_directory();

private:
  // The way back: the namespace, and the root and current directories in it.
  struct way_back {
    way_back();
    ~way_back();
    // False, with the reason in errno, when the kernel or its rules refuse.
    [[nodiscard]] bool go() const;
    way_back(const way_back &) = delete;
    way_back &operator=(const way_back &) = delete;
    descriptor names;
    descriptor root;
    descriptor directory;
  };

  void attach_everything();
  bool cover_or_bare(const mounted &mount);
  descriptor cover(const mounted &mount);

  way_back way_back_;
  std::string scratch_;
  std::vector<mounted> mounts_;
  std::vector<layer> layers_;
  std::vector<bare_mount> bare_mounts_;
  tree disk_;
  tree inside_;
};

} // namespace korvalen::admin
