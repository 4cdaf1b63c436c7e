// A record of system calls made below one folder, one line per step, so that
// the same script run in two folders can be compared as text. Paths in the
// lines are relative to that folder; results are "ok", a number, or the
// errno's name ("ENOENT").
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace vh::test {

class VHSyscallTranscript {
  public:
    explicit VHSyscallTranscript(std::string root);

    // `relative` below the root.
    std::string path(const std::string& relative) const;

    // Runs `call` (a system call's -1-with-errno convention) and records
    // "step: ok" or "step: ENAME"; returns what the call returned.
    int run(const std::string& step, const std::function<int()>& call);
    // open(2) of `relative`; the descriptor (or -1), recorded as ok/errno.
    int open(const std::string& relative, int flags, mode_t mode = 0644);
    // write(2) of all of `bytes`; records the count written.
    void write(int fd, const std::string& bytes);
    void close(int fd);

    void mkdir(const std::string& relative, mode_t mode = 0755);
    void rmdir(const std::string& relative);
    void unlink(const std::string& relative);
    // renameat2(2); `flags` may be RENAME_NOREPLACE or RENAME_EXCHANGE. The
    // drive refuses to move an item while its upload is on its way (EIO, the
    // user is asked to wait): such a refusal is waited out for up to 30 s.
    void rename(const std::string& from, const std::string& to, unsigned int flags = 0);
    void truncate(const std::string& relative, off_t size);
    void chmod(const std::string& relative, mode_t mode);
    // utimensat(2) of both times, in whole seconds.
    void utimens(const std::string& relative, time_t accessed, time_t modified);

    // A new file with `bytes` (O_CREAT | O_EXCL), written and closed.
    void create(const std::string& relative, const std::string& bytes);
    // The whole contents (escaped) or the errno of opening or reading.
    void read(const std::string& relative);
    // pread(2) from offset 0 of an open descriptor.
    void readOpen(const std::string& step, int fd);
    // "file <size>", "folder" or the errno.
    void stat(const std::string& relative);
    void fstat(const std::string& step, int fd);
    void mode(const std::string& relative);
    // Seconds of the modification time.
    void mtime(const std::string& relative);
    // The names in a folder, sorted.
    void list(const std::string& relative);
    void note(const std::string& step, const std::string& value);

    const std::vector<std::string>& lines() const { return lines_; }
    std::string text() const;

  private:
    std::string root_;
    std::vector<std::string> lines_;
};

}  // namespace vh::test
