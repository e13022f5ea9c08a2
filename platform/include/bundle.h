/* Key/value bundle handed to a launched application. */
#ifndef QUILLON_PLATFORM_BUNDLE_H
#define QUILLON_PLATFORM_BUNDLE_H

#ifdef __cplusplus
extern "C" {
#endif

#define BUNDLE_ERROR_NONE 0
#define BUNDLE_ERROR_INVALID_PARAMETER -22
#define BUNDLE_ERROR_KEY_EXISTS -17
#define BUNDLE_ERROR_OUT_OF_MEMORY -12

typedef struct _bundle_t bundle;

typedef void (*bundle_iterate_cb_t)(const char* key, const char* val, void* data);

bundle* bundle_create(void);
/* Adds a text entry; a key may appear once. */
int bundle_add(bundle* b, const char* key, const char* val);
/* The entry's text, owned by the bundle, or NULL. */
const char* bundle_get_val(bundle* b, const char* key);
int bundle_get_count(bundle* b);
/* Calls cb for every entry in insertion order. */
void bundle_iterate(bundle* b, bundle_iterate_cb_t cb, void* data);
int bundle_free(bundle* b);

#ifdef __cplusplus
}
#endif
#endif
