// Restore is not built yet: a restore response is reported to the service as a failure.
#include "PXMBackupRestore.h"

bool PXMBackupRestore::ParseRestoreData(const char*) {
    return false;
}
