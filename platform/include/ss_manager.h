/* Secure storage: small named items, encrypted and bound to a credential. */
#ifndef QUILLON_PLATFORM_SS_MANAGER_H
#define QUILLON_PLATFORM_SS_MANAGER_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#define SS_ERROR_NONE 0
#define SS_ERROR_INVALID_PARAMETER -1
#define SS_ERROR_NO_SUCH_ITEM -2
#define SS_ERROR_IO -3
#define SS_ERROR_AUTH -4 /* damaged item, or another credential's item */
#define SS_ERROR_OUT_OF_MEMORY -5

#define SS_APP_CREDENTIAL_WORDS 5

typedef struct {
    unsigned int app_credential[SS_APP_CREDENTIAL_WORDS];
    int type;
    int flags;
} ss_credential_s;

int ss_init_credential(ss_credential_s* cred, const unsigned int app_credential[5], int type,
                       int flags);
/* Replaces the item; on failure the previous item is left unchanged. */
int ss_write(const char* data, size_t size, int offset, int flags, const char* item_name,
             ss_credential_s* cred, int encrypt);
/* On success *buffer is a NUL-terminated copy (release with ss_free_buffer) and *size its
 * length without the NUL. */
int ss_read(char** buffer, size_t* size, int offset, int flags, const char* item_name,
            ss_credential_s* cred, int decrypt);
void ss_free_buffer(char* buffer);
/* Removes item_name, or every item of the credential when item_name is NULL. */
int ss_clear_storage(const char* item_name, ss_credential_s* cred, int flags);

#ifdef __cplusplus
}
#endif
#endif
