// Copying between two open files in blocks of 4,096 bytes.
#pragma once

#include <cstdio>
#include <memory>

namespace korvalen {

struct file_closer {
  void operator()(std::FILE *file) const { std::fclose(file); }
};

// An open file that is closed when its owner goes.
using open_file = std::unique_ptr<std::FILE, file_closer>;

// Opens a file to be copied from. Null when that fails; errno tells why.
open_file open_source(const char *path);

// Creates or truncates a file to be copied into. What is written goes out at once, never gathered.
// Null when that fails; errno tells why.
open_file open_target(const char *path);

enum class block_result { written, cut_short, end };

// Reads up to 4,096 bytes and writes them in one piece. `end` when nothing could be read, at the end of the
// file and on a read error alike; `cut_short` when fewer bytes were written than read, with the reason in
// errno.
block_result copy_block(std::FILE *source, std::FILE *target);

} // namespace korvalen
