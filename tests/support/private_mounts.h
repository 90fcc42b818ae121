// Mounts that nobody else sees.
#pragma once

namespace support {

// For a process that has a mount namespace of its own: from here on nothing that it mounts reaches another
// namespace. This holds in a plain chroot too, where "/" is no mount point; there the process gets a new root
// directory, with the same entries under the same paths, that is one. The current directory stays, by its
// path. Needs a mounted /proc. False, with errno, when that fails.
bool make_mounts_private();

} // namespace support
