#include <cctype>
#include <cstdio>
#include <ctime>
#include <unistd.h>

#include "scripted/note.h"

using namespace scripted;

namespace scripted {

std::map<FILE *, std::string> &debug_logs() {
    static std::map<FILE *, std::string> logs;

    return logs;
}

} // namespace scripted

/*
 * Checks what every record has, and leaves the message: the date in front, one
 * more newline behind, a source line behind the first function name.
 */
static std::string log_message(const std::string &record) {
    const time_t now = static_cast<time_t>(platform().now_seconds);
    const std::string date =
        "[" + std::string(ctime(&now)).substr(0, 24) + "] ";

    EXPECT_EQ(date, record.substr(0, date.size()));
    EXPECT_EQ('\n', record.back());
    if (record.size() <= date.size())
        return record;
    std::string message =
        record.substr(date.size(), record.size() - date.size() - 1);
    const size_t open = message.find('(');
    const size_t close = message.find(')', open);
    if (open == std::string::npos || close == std::string::npos)
        return message;
    const std::string number = message.substr(open + 1, close - open - 1);
    EXPECT_TRUE(!number.empty() &&
                std::all_of(number.begin(), number.end(),
                            [](unsigned char c) { return isdigit(c) != 0; }))
        << "no source line: " << message;
    return message.replace(open + 1, number.size(), "#");
}

static void put_text(FILE *stream, const std::string &text) {
    Platform &p = platform();

    if (stream == stdout || stream == stderr) {
        const bool is_out = stream == stdout;
        const std::string shown_text = is_out ? out(text) : err(text);

        p.record(is_out ? Kind::Stdout : Kind::Stderr,
                 is_out ? "stdout" : "stderr", shown_text)
            .octets = text;
        return;
    }
    const auto log_file = debug_logs().find(stream);
    if (log_file != debug_logs().end())
        log_file->second += text;
    fwrite(text.data(), 1, text.size(), stream);
}

extern "C" {

static FILE *open_debug_log(const char *name, const char *mode) {
    Platform &p = platform();

    asked("fopen", print("fopen(%s, %s)", text_or_null(name).c_str(),
                         text_or_null(mode).c_str()))
        .strings = {name, mode};
    if (!p.debug_log_opens) {
        errno = EACCES;
        return nullptr;
    }
    FILE *const file = fopen(p.debug_log_on_disk ? name : "/dev/null", mode);
    debug_logs()[file];
    return file;
}

FILE *intercept_fopen(const char *name, const char *mode) {
    Platform &p = platform();

    if (std::string_view(name).starts_with("/tmp/cfg_snmp_debug.log"))
        return open_debug_log(name, mode);
    called("fopen", print("fopen(%s, %s)", text_or_null(name).c_str(),
                          text_or_null(mode).c_str()))
        .strings = {name, mode};
    hook("fopen");
    if (no_memory("fopen") || !p.file_opens.take())
        return nullptr;
    FILE *const file = tmpfile();
    p.local_file = fileno(file);
    return file;
}

int intercept_fclose(FILE *file) {
    called("fclose", "fclose()");
    if (debug_logs().contains(file)) {
        ADD_FAILURE() << "the debug log is never closed";
        return 0;
    }
    platform().local_file.reset();
    return fclose(file);
}

int intercept_fflush(FILE *file) {
    const auto log_file = debug_logs().find(file);

    if (log_file == debug_logs().end()) {
        called("fflush", "fflush()");
        return file == stdout || file == stderr ? 0 : fflush(file);
    }
    platform()
        .record(Kind::Log, "log", log(log_message(log_file->second)))
        .octets = log_file->second;
    log_file->second.clear();
    return fflush(file);
}

int intercept_fileno(FILE *file) {
    return fileno(file);
}

int intercept_rename(const char *from, const char *to) {
    called("rename", print("rename(%s, %s)", text_or_null(from).c_str(),
                           text_or_null(to).c_str()))
        .strings = {from, to};
    return platform().rename_results.take();
}

int intercept_unlink(const char *path) {
    called("unlink", print("unlink(%s)", text_or_null(path).c_str()))
        .strings = {path};
    hook("unlink");
    return platform().unlink_results.take();
}

char *intercept_getcwd(char *buffer, size_t size) {
    const std::string &directory = platform().working_directory;

    asked("getcwd", print("getcwd(%zu)", size));
    hook("getcwd");
    if (directory.empty() || directory.size() + 1 > size) {
        errno = directory.empty() ? ENOENT : ERANGE;
        return nullptr;
    }
    memcpy(buffer, directory.c_str(), directory.size() + 1);
    return buffer;
}

void intercept_perror(const char *prefix) {
    put_text(stderr, std::string(prefix) + ": " + strerror(errno) + "\n");
}

int intercept_vfprintf(FILE *stream, const char *format, va_list arguments) {
    const std::string text = formatted(format, arguments);

    put_text(stream, text);
    return static_cast<int>(text.size());
}

int intercept_fprintf(FILE *stream, const char *format, ...) {
    va_list arguments;

    va_start(arguments, format);
    const int result = intercept_vfprintf(stream, format, arguments);
    va_end(arguments);
    return result;
}

int intercept_printf(const char *format, ...) {
    va_list arguments;

    va_start(arguments, format);
    const int result = intercept_vfprintf(stdout, format, arguments);
    va_end(arguments);
    return result;
}

int intercept_puts(const char *text) {
    put_text(stdout, std::string(text) + "\n");
    return 0;
}

int intercept_fputs(const char *text, FILE *stream) {
    put_text(stream, text);
    return 0;
}

int intercept_fputc(int c, FILE *stream) {
    put_text(stream, std::string(1, static_cast<char>(c)));
    return c;
}

int intercept_putc(int c, FILE *stream) {
    return intercept_fputc(c, stream);
}

int intercept_putchar(int c) {
    return intercept_fputc(c, stdout);
}

size_t intercept_fwrite(const void *octets, size_t size, size_t count,
                        FILE *stream) {
    put_text(stream,
             std::string(static_cast<const char *>(octets), size * count));
    return count;
}

} // extern "C"
