#include "scripted/note.h"

using namespace scripted;

extern "C" {

int tftp_timeout_set(int seconds) {
    called(__func__, print("%s(%d)", __func__, seconds));
    return platform().tftp_timeout_results.take();
}

int tftp_connect(const char *server, int port) {
    called(__func__,
           print("%s(%s, %d)", __func__, text_or_null(server).c_str(), port))
        .strings = {copy_or_empty(server)};
    return platform().tftp_connect_results.take();
}

int tftp_put2(const char *local, const char *remote, int flags) {
    called(__func__,
           print("%s(%s, %s, %d)", __func__, text_or_null(local).c_str(),
                 text_or_null(remote).c_str(), flags))
        .strings = {copy_or_empty(local), copy_or_empty(remote)};
    hook(__func__);
    return platform().tftp_put_results.take();
}

int tftp_get2(const char *remote, const char *local, int flags) {
    called(__func__,
           print("%s(%s, %s, %d)", __func__, text_or_null(remote).c_str(),
                 text_or_null(local).c_str(), flags))
        .strings = {copy_or_empty(remote), copy_or_empty(local)};
    hook(__func__);
    return platform().tftp_get_results.take();
}

const char *tftp_strerror(int code) {
    static std::string place;

    asked(__func__, print("%s(%d)", __func__, code));
    return lasting(place, print("tftp_strerror %d", code));
}

int execute_program_and_wait_redirect(int in, int out_fd, int err_fd,
                                      const char *path, ...) {
    const std::string output =
        out_fd == platform().local_file ? "fd" : std::to_string(out_fd);
    std::string text = print("%s(%d, %s, %d, %s", __func__, in, output.c_str(),
                             err_fd, text_or_null(path).c_str());
    std::vector<std::string> strings = {path};
    va_list arguments;

    va_start(arguments, path);
    for (const char *argument = va_arg(arguments, const char *);
         argument != nullptr; argument = va_arg(arguments, const char *)) {
        text += ", " + quote(argument);
        strings.emplace_back(argument);
    }
    va_end(arguments);
    called(__func__, text + ")").strings = strings;
    hook(__func__);
    return platform().program_results.take();
}

} // extern "C"
