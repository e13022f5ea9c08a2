// Not built yet: placeholder so that the daemon links while this file's owner works on it.
#include "PXMBackupRestore.h"

bool PXMBackupRestore::Backup(pxm_core_device_s*, OP_TYPE) { return false; }
bool PXMBackupRestore::AssembleCompleteData(std::string&) { return false; }
void PXMBackupRestore::AssembleBackupData(std::string&, std::string&, pxm_core_device_s*) {}
void PXMBackupRestore::m_ProcessBackupAll() {}
