// Copying the bytes of files in blocks of 4,096.
#pragma once

#include <cstdio>
#include <functional>
#include <memory>

namespace korvalen {

struct file_closer {
  void operator()(std::FILE *file) const { std::fclose(file); }
};

// An open file that is closed when its owner goes.
using open_file = std::unique_ptr<std::FILE, file_closer>;

// Opens a file to be copied from. Nothing is kept of what is read. Null when that fails; errno tells why.
open_file open_source(const char *path);

// Creates or truncates a file to be copied into. What is written goes out at once, never gathered.
// Null when that fails; errno tells why.
open_file open_target(const char *path);

// Copies what the source still holds, in writes of 4,096 bytes and the rest in a last one. When fewer bytes
// are written than asked, `goes_on_after_short_write` is called with the reason in errno and says whether the
// next block is to follow. A read that yields nothing ends the copy, at the end of the source and for an
// error alike. errno is 0 before the first read and before every write. False when a short write ended it.
bool copy_blocks(std::FILE *source, std::FILE *target,
                 const std::function<bool()> &goes_on_after_short_write);

// Copies a file in blocks of 4,096 bytes over the target. 1 when done; 0 when either file cannot be opened or
// a block is written short, which leaves the target incomplete.
int copy_binary_file(const char *source, const char *target);

// Makes a file stream and closes it without opening a file: no effect.
void probe_file_stream();

} // namespace korvalen
