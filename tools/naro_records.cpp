// naro-records: what the daemon has recorded on the SD card, listed, filtered, checked and exported.
//
// It only ever reads. What is damaged is left out and said on the error stream, with the file's name.
#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <filesystem>
#include <getopt.h>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "desk.h"
#include "naro_util.h"
#include "record_file.h"

namespace
{

const char help[] =
    "usage: naro-records [options] [list | files | verify] [FILE | FOLDER ...]\n"
    "\n"
    "What was detected, as the daemon has recorded it on the camera's SD card: a file for each hour. Without "
    "FILE or\n"
    "FOLDER, those of the camera's card; a folder is one of an hour, or one that holds those of hours.\n"
    "\n"
    "  list               a line for each record (the default)\n"
    "  files              a line for each file\n"
    "  verify             says everything that is wrong or odd about files, and the count\n"
    "\n"
    "  --since TIME       only records of this moment and later: YYYY-MM-DD, \"YYYY-MM-DD HH:MM[:SS]\" or "
    "@SECONDS\n"
    "  --until TIME       only records before this moment\n"
    "  --type NAME        only motion, people, sound, or a number; may be repeated\n"
    "  --csv, --json      list and files as CSV, or as one JSON object a line\n"
    "  --utc              times are UTC (else local)\n"
    "  --help             this text\n"
    "\n"
    "Nothing is ever changed or repaired. What is damaged is left out and said on the error stream. "
    "NARO_ROOT "
    "says where\n"
    "the camera lives; without it the place is found by the same rule as naro_camera finds it. Exit status: "
    "0, 1 when\n"
    "something could not be read or verify has found damage, 2 for a wrong command.\n";

enum {
    FINE = 0,
    FAILED = 1,
    WRONG = 2,
    LONG_SINCE = 256,
    LONG_UNTIL,
    LONG_TYPE,
    LONG_CSV,
    LONG_JSON,
    LONG_UTC
};
enum action { LIST, FILES, VERIFY };
const option long_options[] = {
    {"since", required_argument, nullptr, LONG_SINCE},
    {"until", required_argument, nullptr, LONG_UNTIL},
    {"type", required_argument, nullptr, LONG_TYPE},
    {"csv", no_argument, nullptr, LONG_CSV},
    {"json", no_argument, nullptr, LONG_JSON},
    {"utc", no_argument, nullptr, LONG_UTC},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

// An hour of the busiest events is some hundred KB.
const off_t FILE_MAX = 64 << 20;

struct {
    action what = LIST;
    record_form form = RECORD_TABLE;
    const char *since_text, *until_text;
    int64_t since = INT64_MIN, until = INT64_MAX;
    std::vector<uint32_t> types; // none: all
    bool utc;
} options;

struct {
    int result = FINE;
    size_t files, records, notes, faults;
} found;

void failed(const std::string &path, int error)
{
    desk_say("%s: %s", path.c_str(), strerror(error));
    found.result = FAILED;
}

// The whole file; false after saying why not.
bool read_file(const std::string &path, std::vector<char> *bytes)
{
    struct stat status;
    const bool there = stat(path.c_str(), &status) == 0;
    const bool regular = there && S_ISREG(status.st_mode); // a pipe would make us wait for ever
    const int fd = regular ? open(path.c_str(), O_RDONLY | O_CLOEXEC) : -1;
    if (fd < 0 || fstat(fd, &status) != 0) {
        failed(path, there && !regular ? EINVAL : errno);
        if (fd >= 0)
            close(fd);
        return false;
    }
    bool fine = status.st_size <= FILE_MAX;
    if (!fine)
        failed(path, EFBIG);
    bytes->resize(fine ? static_cast<size_t>(status.st_size) : 0);
    size_t have = 0;
    while (fine && have < bytes->size()) {
        const ssize_t got = read(fd, bytes->data() + have, bytes->size() - have);
        if (got < 0) {
            failed(path, errno);
            fine = false;
        }
        if (got <= 0)
            break; // shorter now: somebody empties it
        have += static_cast<size_t>(got);
    }
    bytes->resize(have);
    close(fd);
    return fine;
}

bool wanted(const motion_record_event &record)
{
    const bool type = options.types.empty() || std::find(options.types.begin(), options.types.end(),
                                                         record.type) != options.types.end();
    return type && record.time >= options.since && record.time < options.until;
}

void say(const std::string &path, const record_remark &remark)
{
    found.notes += !remark.fault;
    found.faults += remark.fault;
    if (options.what == VERIFY)
        printf("%s: %s%s\n", path.c_str(), remark.fault ? "" : "note: ", remark.text.c_str());
    else
        desk_say("%s: %s%s", path.c_str(), remark.fault ? "" : "note: ", remark.text.c_str());
}

void print_file(const std::string &path, size_t size, const record_file &file)
{
    const size_t faults = static_cast<size_t>(std::count_if(file.remarks.begin(), file.remarks.end(),
                                                            [](const record_remark &r) { return r.fault; }));
    const char *header = file.header ? "yes" : "no";
    if (options.form == RECORD_JSON)
        printf("{\"records\":%zu,\"bytes\":%zu,\"header\":%s,\"faults\":%zu,\"file\":%s}\n",
               file.records.size(), size, file.header ? "true" : "false", faults,
               record_json_text(path).c_str());
    else if (options.form == RECORD_CSV)
        printf("%zu,%zu,%s,%zu,%s\n", file.records.size(), size, header, faults,
               record_csv_text(path).c_str());
    else
        printf("%7zu  %8zu  %-6s  %6zu  %s\n", file.records.size(), size, header, faults, path.c_str());
}

void one_file(const std::string &path)
{
    std::vector<char> bytes;
    if (!read_file(path, &bytes))
        return;
    record_file file = record_file_read(bytes.data(), bytes.size());
    const std::string folder = std::filesystem::absolute(path).parent_path().filename();
    const size_t astray = static_cast<size_t>(
        std::count_if(file.records.begin(), file.records.end(),
                      [&](const motion_record_event &r) { return !record_belongs(folder, r.time); }));
    if (astray > 0 && record_folder_is_hour(folder))
        file.remarks.push_back(
            {true, std::to_string(astray) + " records that are of another hour than their folder"});
    found.files++;
    found.records += file.records.size();
    for (const record_remark &remark : file.remarks)
        say(path, remark);
    if (options.what == FILES)
        print_file(path, bytes.size(), file);
    if (options.what == LIST)
        for (const motion_record_event &record : file.records)
            if (wanted(record))
                fputs(record_line(options.form, record, path, options.utc).c_str(), stdout);
}

// A folder of an hour, or one of those.
void one_folder(const std::string &path)
{
    std::error_code error;
    std::vector<std::filesystem::path> entries;
    for (std::filesystem::directory_iterator entry(path, error), end; !error && entry != end;
         entry.increment(error))
        entries.push_back(entry->path());
    if (error) {
        failed(path, error.value());
        return;
    }
    std::sort(entries.begin(), entries.end());
    for (const std::filesystem::path &entry : entries) {
        if (entry.filename() == MOTION_RECORD_FILE) {
            one_file(entry);
        } else if (record_folder_is_hour(entry.filename()) && std::filesystem::is_directory(entry, error)) {
            const std::filesystem::path file = entry / MOTION_RECORD_FILE;
            if (std::filesystem::exists(file, error))
                one_file(file);
            else
                say(entry, {false, "no file in it"});
        } else {
            say(entry, {false, "not of the records"});
        }
    }
}

void one_place(const std::string &path)
{
    std::error_code error;
    if (std::filesystem::is_directory(path, error))
        one_folder(path);
    else
        one_file(path);
}

// -1 to go on, or the exit status.
int read_options(int argc, char **argv)
{
    int choice;
    uint32_t type;
    while ((choice = getopt_long(argc, argv, "h", long_options, nullptr)) != -1) {
        switch (choice) {
        case LONG_SINCE:
            options.since_text = optarg;
            break;
        case LONG_UNTIL:
            options.until_text = optarg;
            break;
        case LONG_TYPE:
            if (!record_type_of(optarg, &type)) {
                desk_say("--type wants motion, people, sound or a number, not \"%s\"", optarg);
                return WRONG;
            }
            options.types.push_back(type);
            break;
        case LONG_CSV:
            options.form = RECORD_CSV;
            break;
        case LONG_JSON:
            options.form = RECORD_JSON;
            break;
        case LONG_UTC:
            options.utc = true;
            break;
        case 'h':
            fputs(help, stdout);
            return FINE;
        default:
            fputs("naro-records --help tells the options\n", stderr);
            return WRONG;
        }
    }
    // After --utc, wherever that stood.
    if (options.since_text && !record_time_of(options.since_text, options.utc, &options.since)) {
        desk_say("--since wants a moment such as \"2026-01-31 17:05\", not \"%s\"", options.since_text);
        return WRONG;
    }
    if (options.until_text && !record_time_of(options.until_text, options.utc, &options.until)) {
        desk_say("--until wants a moment such as \"2026-01-31 17:05\", not \"%s\"", options.until_text);
        return WRONG;
    }
    return -1;
}

void heading()
{
    if (options.what == LIST)
        fputs(record_heading(options.form).c_str(), stdout);
    else if (options.what == FILES && options.form != RECORD_JSON)
        puts(options.form == RECORD_CSV ? "records,bytes,header,faults,file"
                                        : "records     bytes  header  faults  file");
}

} // namespace

int main(int argc, char **argv)
{
    desk_set_program("naro-records");
    const int chosen = read_options(argc, argv);
    if (chosen >= 0)
        return chosen;
    int next = optind;
    const char *const actions[] = {"list", "files", "verify"};
    for (int i = 0; next < argc && i < 3; i++) {
        if (strcmp(argv[next], actions[i]) == 0) {
            options.what = static_cast<action>(i);
            next++;
            break;
        }
    }
    heading();
    if (next == argc) {
        if (desk_enter_root(false) != 0)
            return FAILED;
        one_place(std::string(naro_root()) + MOTION_RECORD_ROOT);
    }
    for (; next < argc; next++)
        one_place(argv[next]);
    if (options.what == VERIFY) {
        printf("%zu files, %zu records, %zu faults, %zu notes\n", found.files, found.records, found.faults,
               found.notes);
        if (found.faults > 0)
            found.result = FAILED;
    }
    return fflush(stdout) == 0 ? found.result : static_cast<int>(FAILED);
}
