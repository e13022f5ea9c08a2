/* Application manager: launch, enumerate and terminate applications. */
#ifndef QUILLON_PLATFORM_AUL_H
#define QUILLON_PLATFORM_AUL_H

#include "bundle.h"

#ifdef __cplusplus
extern "C" {
#endif

#define AUL_R_OK 0
#define AUL_R_ERROR -1
#define AUL_R_EINVAL -2
#define AUL_R_ENOAPP -3    /* no such application registered */
#define AUL_R_ENOLAUNCH -4 /* the executable could not be started */
#define AUL_R_ESRCH -5     /* no such process */

typedef struct _aul_app_info {
    int pid;
    char* pkg_name;
    char* app_path;
    char* appid;
} aul_app_info;

typedef int (*aul_app_info_iter_fn)(const aul_app_info* ainfo, void* data);
typedef int (*aul_app_dead_event_cb)(int pid, void* data);

/* The new process id (> 0), or an AUL_R_* error (< 0). */
int aul_launch_app(const char* appid, bundle* kb);
/* 1 when an instance of appid runs, 0 otherwise. */
int aul_app_is_running(const char* appid);
/* Calls iter_fn once per running application; AUL_R_OK or an error. */
int aul_app_get_running_app_info(aul_app_info_iter_fn iter_fn, void* user_param);
int aul_terminate_pid(int pid);
/* Writes the package name of pid (NUL-terminated, at most len - 1 characters). */
int aul_app_get_pkgname_bypid(int pid, char* pkgname, int len);
/* One listener per process; a later call replaces the earlier one. */
int aul_listen_app_dead_signal(aul_app_dead_event_cb func, void* data);

#ifdef __cplusplus
}
#endif
#endif
