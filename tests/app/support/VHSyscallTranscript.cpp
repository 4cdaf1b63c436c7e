#include "support/VHSyscallTranscript.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

namespace vh::test {

namespace {

std::string errnoName(int number) {
    const char* name = strerrorname_np(number);
    return name ? name : "errno " + std::to_string(number);
}

// Printable bytes as they are, others as \xNN.
std::string escaped(const std::string& bytes) {
    std::string text;
    char hex[5];
    for (unsigned char c : bytes) {
        if (c >= 0x20 && c < 0x7f && c != '\\') {
            text += static_cast<char>(c);
        } else {
            std::snprintf(hex, sizeof hex, "\\x%02x", c);
            text += hex;
        }
    }
    return text;
}

// The bytes from offset 0, or the errno's name after "!".
std::string readAll(int fd) {
    std::string bytes;
    char buffer[65536];
    off_t offset = 0;
    for (;;) {
        ssize_t n = pread(fd, buffer, sizeof buffer, offset);
        if (n < 0) return "!" + errnoName(errno);
        if (n == 0) return escaped(bytes);
        bytes.append(buffer, static_cast<size_t>(n));
        offset += n;
    }
}

std::string describe(const struct stat& st) {
    if (S_ISDIR(st.st_mode)) return "folder";
    if (S_ISREG(st.st_mode)) return "file " + std::to_string(st.st_size);
    return "other";
}

}  // namespace

VHSyscallTranscript::VHSyscallTranscript(std::string root) : root_(std::move(root)) {}

std::string VHSyscallTranscript::path(const std::string& relative) const {
    return relative.empty() ? root_ : root_ + "/" + relative;
}

int VHSyscallTranscript::run(const std::string& step, const std::function<int()>& call) {
    int result = call();
    int error = errno;
    note(step, result < 0 ? errnoName(error) : "ok");
    errno = error;
    return result;
}

int VHSyscallTranscript::open(const std::string& relative, int flags, mode_t mode) {
    std::string full = path(relative);
    char step[64];
    std::snprintf(step, sizeof step, "open 0%o", flags);
    return run(std::string(step) + " " + relative,
               [&] { return ::open(full.c_str(), flags | O_CLOEXEC, mode); });
}

void VHSyscallTranscript::write(int fd, const std::string& bytes) {
    ssize_t written = ::write(fd, bytes.data(), bytes.size());
    int error = errno;
    note("write " + std::to_string(bytes.size()),
         written < 0 ? errnoName(error) : std::to_string(written));
}

void VHSyscallTranscript::close(int fd) {
    if (fd >= 0) run("close", [&] { return ::close(fd); });
}

void VHSyscallTranscript::mkdir(const std::string& relative, mode_t mode) {
    std::string full = path(relative);
    run("mkdir " + relative, [&] { return ::mkdir(full.c_str(), mode); });
}

void VHSyscallTranscript::rmdir(const std::string& relative) {
    std::string full = path(relative);
    run("rmdir " + relative, [&] { return ::rmdir(full.c_str()); });
}

void VHSyscallTranscript::unlink(const std::string& relative) {
    std::string full = path(relative);
    run("unlink " + relative, [&] { return ::unlink(full.c_str()); });
}

void VHSyscallTranscript::rename(const std::string& from, const std::string& to,
                                 unsigned int flags) {
    std::string source = path(from), target = path(to);
    std::string how = flags == RENAME_NOREPLACE  ? " (no replace)"
                      : flags == RENAME_EXCHANGE ? " (exchange)"
                                                 : "";
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    run("rename " + from + " to " + to + how, [&] {
        for (;;) {
            int result = ::renameat2(AT_FDCWD, source.c_str(), AT_FDCWD, target.c_str(), flags);
            if (result == 0 || errno != EIO || std::chrono::steady_clock::now() > deadline) {
                return result;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        }
    });
}

void VHSyscallTranscript::truncate(const std::string& relative, off_t size) {
    std::string full = path(relative);
    run("truncate " + relative + " " + std::to_string(size),
        [&] { return ::truncate(full.c_str(), size); });
}

void VHSyscallTranscript::chmod(const std::string& relative, mode_t mode) {
    std::string full = path(relative);
    char step[32];
    std::snprintf(step, sizeof step, "chmod 0%o ", mode);
    run(step + relative, [&] { return ::chmod(full.c_str(), mode); });
}

void VHSyscallTranscript::utimens(const std::string& relative, time_t accessed, time_t modified) {
    std::string full = path(relative);
    struct timespec times[2] = {{accessed, 0}, {modified, 0}};
    run("utimens " + relative + " " + std::to_string(modified),
        [&] { return ::utimensat(AT_FDCWD, full.c_str(), times, 0); });
}

void VHSyscallTranscript::create(const std::string& relative, const std::string& bytes) {
    int fd = open(relative, O_CREAT | O_EXCL | O_WRONLY);
    if (fd < 0) return;
    write(fd, bytes);
    close(fd);
}

void VHSyscallTranscript::read(const std::string& relative) {
    int fd = ::open(path(relative).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        int error = errno;
        note("read " + relative, "!" + errnoName(error));
        return;
    }
    note("read " + relative, readAll(fd));
    ::close(fd);
}

void VHSyscallTranscript::readOpen(const std::string& step, int fd) {
    note(step, readAll(fd));
}

void VHSyscallTranscript::stat(const std::string& relative) {
    struct stat st {};
    bool found = ::stat(path(relative).c_str(), &st) == 0;
    int error = errno;
    note("stat " + relative, found ? describe(st) : errnoName(error));
}

void VHSyscallTranscript::fstat(const std::string& step, int fd) {
    struct stat st {};
    bool found = ::fstat(fd, &st) == 0;
    int error = errno;
    note(step, found ? describe(st) : errnoName(error));
}

void VHSyscallTranscript::mode(const std::string& relative) {
    struct stat st {};
    if (::stat(path(relative).c_str(), &st) != 0) {
        int error = errno;
        note("mode " + relative, errnoName(error));
        return;
    }
    char octal[16];
    std::snprintf(octal, sizeof octal, "0%o", st.st_mode & 07777);
    note("mode " + relative, octal);
}

void VHSyscallTranscript::mtime(const std::string& relative) {
    struct stat st {};
    bool found = ::stat(path(relative).c_str(), &st) == 0;
    int error = errno;
    note("mtime " + relative, found ? std::to_string(st.st_mtim.tv_sec) : errnoName(error));
}

void VHSyscallTranscript::list(const std::string& relative) {
    DIR* dir = ::opendir(path(relative).c_str());
    if (!dir) {
        int error = errno;
        note("list " + relative, errnoName(error));
        return;
    }
    std::vector<std::string> names;
    while (struct dirent* entry = ::readdir(dir)) {
        std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    ::closedir(dir);
    std::sort(names.begin(), names.end());
    std::string joined;
    for (const std::string& name : names) joined += (joined.empty() ? "" : " ") + name;
    note("list " + (relative.empty() ? "." : relative), "[" + joined + "]");
}

void VHSyscallTranscript::note(const std::string& step, const std::string& value) {
    lines_.push_back(step + ": " + value);
}

std::string VHSyscallTranscript::text() const {
    std::string all;
    for (const std::string& line : lines_) all += line + "\n";
    return all;
}

}  // namespace vh::test
