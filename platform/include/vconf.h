/* Platform settings store: typed values under slash-separated keys. */
#ifndef QUILLON_PLATFORM_VCONF_H
#define QUILLON_PLATFORM_VCONF_H

#ifdef __cplusplus
extern "C" {
#endif

#define VCONF_OK 0
#define VCONF_ERROR -1

typedef enum {
    VCONF_TYPE_NONE = 0,
    VCONF_TYPE_STRING = 40,
    VCONF_TYPE_INT = 41,
    VCONF_TYPE_DOUBLE = 42,
    VCONF_TYPE_BOOL = 43,
} vconf_t;

/* The changed key as a change callback sees it; valid only during the callback. */
typedef struct _keynode_t keynode_t;

typedef void (*vconf_callback_fn)(keynode_t* node, void* user_data);

/* All return VCONF_OK (0) on success and VCONF_ERROR (-1) on failure (missing key,
 * wrong type, storage error). */
int vconf_get_int(const char* key, int* intval);
int vconf_get_bool(const char* key, int* boolval);
/* A newly allocated copy of the value (release with free), or NULL. */
char* vconf_get_str(const char* key);
int vconf_set_int(const char* key, int intval);
int vconf_set_bool(const char* key, int boolval);
int vconf_set_str(const char* key, const char* strval);
int vconf_unset(const char* key);

int vconf_notify_key_changed(const char* key, vconf_callback_fn cb, void* user_data);
int vconf_ignore_key_changed(const char* key, vconf_callback_fn cb);

char* vconf_keynode_get_name(keynode_t* keynode);
int vconf_keynode_get_type(keynode_t* keynode);
int vconf_keynode_get_int(keynode_t* keynode);
int vconf_keynode_get_bool(keynode_t* keynode);
/* Owned by the node; NULL when the value is not a string. */
char* vconf_keynode_get_str(keynode_t* keynode);

#ifdef __cplusplus
}
#endif
#endif
