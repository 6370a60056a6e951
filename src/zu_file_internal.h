// zu_file_internal: the file-system primitives that the file, parameter-file and log units
// share: opening files close-on-exec and never world-writable when created, following
// symbolic links only where their owner can be trusted, and replacing a file's contents
// atomically and durably. Every function sets errno on failure, as the system calls do.
// Thread safety: all functions may be called from any thread; none holds state.
#ifndef ZUSTD_SRC_ZU_FILE_INTERNAL_H
#define ZUSTD_SRC_ZU_FILE_INTERNAL_H

#include <sys/types.h>

#include <string>

namespace zu_internal {

// Symbolic-link hops followed before giving up with ELOOP, as the kernel does.
constexpr int kMaxLinkHops = 40;

// True when a symbolic link owned by uid may be followed: it belongs to the process's
// effective user or to root (the kernel's rule for links in sticky directories).
bool IsTrustedLinkOwner(uid_t uid);

// Follows path through symbolic links owned by a trusted user to the name of the file
// itself, which need not exist. False, with errno EACCES, at a link of another owner,
// ELOOP after kMaxLinkHops links, or the error of a failed lookup. A relative link is
// taken relative to the directory holding it.
bool ResolveTrustedLinks(const std::string& path, std::string* resolved);

// open(2) with O_CLOEXEC added. When flags hold O_CREAT and this call created the file,
// write permission for others is taken away, whatever the umask; an existing file keeps
// its mode. Returns the descriptor or -1.
int OpenNoWorldWrite(const char* path, int flags, mode_t mode = 0666);

// Open flags (O_RDONLY, O_CREAT|O_TRUNC|O_WRONLY ...) for an fopen mode text such as
// "r", "w+b" or "a+"; false for a text fopen would refuse.
bool FlagsForFopenMode(const char* mode, int* flags);

// Replaces the file at path by a new file holding exactly bytes: the text goes to a new
// file in the same directory, is synced, takes the old file's permission bits (and owner
// and group where allowed), and is renamed over the name; then the directory is synced.
// A new file gets the mode fopen would give it, without write permission for others.
// path may be a symbolic link owned by a trusted user: the file it leads to is replaced
// and the link stays. On any failure, false: the old file is untouched and no new file is
// left behind. A name with other hard links is replaced alone; the others keep the old text.
bool ReplaceFileContents(const std::string& path, const std::string& bytes);

// Opens the regular file at path as OpenNoWorldWrite does, never through a symbolic link
// of another owner: the name is opened with O_NOFOLLOW, and a link in its place is followed
// only when ResolveTrustedLinks accepts it. Returns the descriptor, or -1 with errno EACCES
// at a foreign link, EINVAL for something that is no regular file (a directory, device or
// pipe), or the error of open.
int OpenTrustedRegularFile(const std::string& path, int flags, mode_t mode = 0666);

}  // namespace zu_internal

#endif  // ZUSTD_SRC_ZU_FILE_INTERNAL_H
