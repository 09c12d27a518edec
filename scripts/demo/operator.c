/* Preloaded into the demonstration's sshd: it knows a user "operator" that is
 * in no file of the machine, with the user id, home and encrypted password of
 * the environment. Everybody else is who they are. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <pwd.h>
#include <shadow.h>
#include <stdlib.h>
#include <string.h>

static char name[] = "operator", empty[] = "", shell[] = "/bin/sh";

static int is_operator(const char *who) { return strcmp(who, name) == 0; }

static char *from_environment(const char *variable) {
    char *value = getenv(variable);
    return value == NULL ? empty : value;
}

struct passwd *getpwnam(const char *who) {
    static struct passwd user;
    struct passwd *(*real)(const char *);

    if (!is_operator(who)) {
        *(void **)&real = dlsym(RTLD_NEXT, "getpwnam");
        return real(who);
    }
    user.pw_name = name;
    user.pw_passwd = from_environment("DEMO_SECRET");
    user.pw_uid = (uid_t)atoi(from_environment("DEMO_UID"));
    user.pw_gid = (gid_t)atoi(from_environment("DEMO_GID"));
    user.pw_gecos = empty;
    user.pw_dir = from_environment("DEMO_HOME");
    user.pw_shell = shell;
    return &user;
}

struct spwd *getspnam(const char *who) {
    static struct spwd secret;
    struct spwd *(*real)(const char *);

    if (!is_operator(who)) {
        *(void **)&real = dlsym(RTLD_NEXT, "getspnam");
        return real(who);
    }
    secret.sp_namp = name;
    secret.sp_pwdp = from_environment("DEMO_SECRET");
    /* No date of this password or account ever comes. */
    secret.sp_lstchg = secret.sp_min = secret.sp_max = -1;
    secret.sp_warn = secret.sp_inact = secret.sp_expire = -1;
    return &secret;
}
