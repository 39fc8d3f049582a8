// A disk that forgets what was not synced. The calls by which a program changes files stand here in front of
// the C library's own; while recording, each change below one folder is taken down, and what a power cut
// after any of them would leave can be put into another folder.
//
//   recorded_disk::start("/tmp/x/root");          // in the process that is watched, with one thread
//   recorded_disk::mark("acknowledged ...");      // a note between the changes
//   std::vector<Change> changes = recorded_disk::stop();
//
//   Disk disk;
//   for (const Change &change : changes) {
//       disk.apply(change);
//       disk.leave("/tmp/y/root", Disk::Leaves::synced, seed);
//   }
//
// Include in one source of a binary. No sync reaches the machine's disk in such a binary.
#ifndef NARO_TESTS_RECORDED_DISK_H
#define NARO_TESTS_RECORDED_DISK_H

#include <errno.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <stdarg.h>
#include <stdint.h>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>
#include <vector>

struct Change {
    enum Kind : uint8_t { create, folder, write, truncate, remove, sync, mark };
    Kind kind;
    std::string path; // below the root; of a mark: its text
    int64_t offset;   // of a write; the new size of a truncation
    std::string bytes;
};

namespace recorded_disk
{

inline std::vector<Change> *changes = nullptr; // null = not recording
inline std::string *root = nullptr;
inline std::map<int, std::string> *files = nullptr; // by descriptor, those below the root

// The part of `path` below the root; "" when it is not there.
inline std::string below(const char *path)
{
    if (!changes || !path || std::string(path).compare(0, root->size(), *root) != 0)
        return "";
    std::string rest = path + root->size();
    while (rest.size() > 1 && rest.back() == '/')
        rest.pop_back();
    return rest.empty() ? "/" : rest;
}
inline const std::string *file(int fd)
{
    const auto found = changes ? files->find(fd) : std::map<int, std::string>::iterator();
    return changes && found != files->end() ? &found->second : nullptr;
}
inline void note(Change::Kind kind, const std::string &path, int64_t offset = 0, std::string bytes = "")
{
    changes->push_back({kind, path, offset, std::move(bytes)});
}
inline void start(const std::string &below_this)
{
    root = new std::string(below_this);
    files = new std::map<int, std::string>;
    changes = new std::vector<Change>;
}
inline void mark(const std::string &text)
{
    note(Change::mark, text);
}
inline std::vector<Change> stop()
{
    std::vector<Change> result = std::move(*changes);
    changes = nullptr;
    return result;
}

// To and from a file, for another process.
inline void save(const std::vector<Change> &all, const std::string &path)
{
    std::ofstream out(path, std::ios::binary);
    for (const Change &change : all) {
        const uint64_t sizes[2] = {change.path.size(), change.bytes.size()};
        out.put(static_cast<char>(change.kind));
        out.write(reinterpret_cast<const char *>(sizes), sizeof sizes);
        out.write(reinterpret_cast<const char *>(&change.offset), sizeof change.offset);
        out << change.path << change.bytes;
    }
}
inline std::vector<Change> load(const std::string &path)
{
    std::vector<Change> all;
    std::ifstream in(path, std::ios::binary);
    for (int kind; (kind = in.get()) != EOF;) {
        uint64_t sizes[2];
        Change change = {static_cast<Change::Kind>(kind), "", 0, ""};
        in.read(reinterpret_cast<char *>(sizes), sizeof sizes);
        in.read(reinterpret_cast<char *>(&change.offset), sizeof change.offset);
        change.path.resize(sizes[0]);
        change.bytes.resize(sizes[1]);
        in.read(&change.path[0], static_cast<std::streamsize>(sizes[0]));
        in.read(&change.bytes[0], static_cast<std::streamsize>(sizes[1]));
        all.push_back(std::move(change));
    }
    return all;
}

} // namespace recorded_disk

extern "C" {

inline int recorded_open(const char *path, int flags, mode_t mode)
{
    const std::string rest = recorded_disk::below(path);
    struct stat status;
    const bool fresh = !rest.empty() && (flags & O_CREAT) && lstat(path, &status) != 0;
    const int fd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
    if (fd < 0 || !recorded_disk::changes)
        return fd;
    recorded_disk::files->erase(fd);
    if (rest.empty())
        return fd;
    (*recorded_disk::files)[fd] = rest;
    if (fresh)
        recorded_disk::note(Change::create, rest);
    else if (flags & O_TRUNC)
        recorded_disk::note(Change::truncate, rest, 0);
    return fd;
}

__attribute__((used)) int open64(const char *path, int flags, ...)
{
    va_list more;
    va_start(more, flags);
    const mode_t mode = flags & (O_CREAT | O_TMPFILE) ? va_arg(more, mode_t) : 0;
    va_end(more);
    return recorded_open(path, flags, mode);
}
__attribute__((used)) ssize_t pwrite64(int fd, const void *bytes, size_t length, off64_t offset)
{
    const ssize_t moved = syscall(SYS_pwrite64, fd, bytes, length, offset);
    const std::string *path = recorded_disk::file(fd);
    if (path && moved > 0)
        recorded_disk::note(Change::write, *path, offset,
                            std::string(static_cast<const char *>(bytes), static_cast<size_t>(moved)));
    return moved;
}
__attribute__((used)) int ftruncate64(int fd, off64_t size) noexcept
{
    const int result = static_cast<int>(syscall(SYS_ftruncate, fd, size));
    const std::string *path = recorded_disk::file(fd);
    if (path && result == 0)
        recorded_disk::note(Change::truncate, *path, size);
    return result;
}
__attribute__((used)) int fsync(int fd)
{
    if (const std::string *path = recorded_disk::file(fd))
        recorded_disk::note(Change::sync, *path);
    return 0;
}
__attribute__((used)) int fdatasync(int fd)
{
    return fsync(fd);
}
__attribute__((used)) int unlink(const char *path) noexcept
{
    const int result = static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
    const std::string rest = recorded_disk::below(path);
    if (result == 0 && !rest.empty())
        recorded_disk::note(Change::remove, rest);
    return result;
}
__attribute__((used)) int mkdir(const char *path, mode_t mode) noexcept
{
    const int result = static_cast<int>(syscall(SYS_mkdirat, AT_FDCWD, path, mode));
    const std::string rest = recorded_disk::below(path);
    if (result == 0 && !rest.empty())
        recorded_disk::note(Change::folder, rest);
    return result;
}
}

// What the changes so far have made of a disk that was empty before them.
class Disk
{
  public:
    enum class Leaves {
        synced, // nothing that was not synced
        some,   // besides, any of the writes since, or pieces of them; names made and removed in their order
        all,    // everything, as when only the program dies
    };

    void apply(const Change &change)
    {
        const auto found = names.find(change.path);
        switch (change.kind) {
        case Change::create:
        case Change::folder:
            names[change.path] = files.size();
            unsynced_names.push_back({change.path, static_cast<int>(files.size())});
            files.push_back({change.kind == Change::folder, "", "", {}});
            break;
        case Change::remove:
            if (found == names.end())
                break;
            names.erase(found);
            unsynced_names.push_back({change.path, -1});
            break;
        case Change::write:
        case Change::truncate:
            if (found == names.end())
                break;
            put(&files[found->second].now, change);
            files[found->second].unsynced.push_back(change);
            break;
        case Change::sync:
            if (syncs_count)
                sync(change.path);
            break;
        case Change::mark:
            break;
        }
    }

    // Makes `folder` what is found after a power cut now.
    void leave(const std::string &folder, Leaves what, unsigned seed) const
    {
        std::mt19937 random(seed);
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
        std::map<std::string, size_t> left = what == Leaves::all ? names : synced_names;
        if (what == Leaves::some) {
            size_t kept = random() % (unsynced_names.size() + 1);
            for (const auto &name : unsynced_names) {
                if (kept-- == 0)
                    break;
                if (name.second < 0)
                    left.erase(name.first);
                else
                    left[name.first] = static_cast<size_t>(name.second);
            }
        }
        for (const auto &name : left) // a folder comes before what is in it
            if (files[name.second].is_folder)
                std::filesystem::create_directories(folder + name.first);
        for (const auto &name : left) {
            const File &file = files[name.second];
            const std::string path = folder + name.first;
            // The log's index is no file but shared memory: nobody's after a power cut.
            if (file.is_folder || path.compare(path.size() - 4, 4, "-shm") == 0)
                continue;
            if (std::filesystem::exists(std::filesystem::path(path).parent_path()))
                std::ofstream(path, std::ios::binary) << content(file, what, &random);
        }
    }

    bool syncs_count = true; // false: a disk that syncs nothing, to see that it is noticed

  private:
    struct File {
        bool is_folder;
        std::string now;
        std::string synced;
        std::vector<Change> unsynced;
    };
    enum { SECTOR = 512 };

    static void put(std::string *content, const Change &change)
    {
        if (change.kind == Change::truncate) {
            content->resize(static_cast<size_t>(change.offset));
            return;
        }
        const size_t at = static_cast<size_t>(change.offset);
        if (content->size() < at + change.bytes.size())
            content->resize(at + change.bytes.size());
        content->replace(at, change.bytes.size(), change.bytes);
    }

    static std::string content(const File &file, Leaves what, std::mt19937 *random)
    {
        if (what == Leaves::all)
            return file.now;
        std::string result = file.synced;
        if (what == Leaves::synced)
            return result;
        for (const Change &change : file.unsynced) {
            const unsigned dice = (*random)() % 4;
            if (dice == 0)
                continue;
            if (dice == 1 && change.kind == Change::write && change.bytes.size() > SECTOR) {
                for (size_t at = 0; at < change.bytes.size(); at += SECTOR)
                    if ((*random)() % 2)
                        put(&result, {Change::write, "", change.offset + static_cast<int64_t>(at),
                                      change.bytes.substr(at, SECTOR)});
                continue;
            }
            put(&result, change);
        }
        return result;
    }

    void sync(const std::string &path)
    {
        const auto found = names.find(path);
        if (path != "/" && found == names.end())
            return;
        if (path != "/" && !files[found->second].is_folder) {
            File &file = files[found->second];
            file.synced = file.now;
            file.unsynced.clear();
            return;
        }
        // The names in that folder.
        std::vector<std::pair<std::string, int>> rest;
        for (const auto &name : unsynced_names) {
            std::string parent = name.first.substr(0, name.first.rfind('/'));
            if ((parent.empty() ? "/" : parent) != path)
                rest.push_back(name);
            else if (name.second < 0)
                synced_names.erase(name.first);
            else
                synced_names[name.first] = static_cast<size_t>(name.second);
        }
        unsynced_names = rest;
    }

    std::vector<File> files;
    std::map<std::string, size_t> names, synced_names;
    std::vector<std::pair<std::string, int>> unsynced_names; // in their order; -1: removed
};

#endif
