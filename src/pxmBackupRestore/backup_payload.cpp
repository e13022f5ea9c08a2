// The backup payload is not built yet. The handlers already call Backup after every change,
// so these members do nothing and report that nothing was sent.
#include "PXMBackupRestore.h"

bool PXMBackupRestore::Backup(pxm_core_device_s*, OP_TYPE) {
    return false;
}
bool PXMBackupRestore::AssembleCompleteData(std::string&) {
    return false;
}
void PXMBackupRestore::AssembleBackupData(std::string&, std::string&, pxm_core_device_s*) {}
void PXMBackupRestore::m_ProcessBackupAll() {}
