#pragma once

#include <string>
#include <sys/types.h>

namespace GenICam {
namespace Client {

// Replaces `path` with `content` so that a reader sees the old file or the new one, never half:
// a temporary file in the same directory, fsync, rename, then fsync of the directory.
// False with the errno in *error; the old file is then untouched and no temporary file is left.
bool WriteFileAtomically(const std::string& path, const std::string& content, mode_t mode, int* error);

// The whole file; false with the errno in *error (ENOENT when there is none).
bool ReadWholeFile(const std::string& path, std::string* content, int* error);

} // namespace Client
} // namespace GenICam
