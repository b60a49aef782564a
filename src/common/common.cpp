#include "common/common.h"

#include <uuid/uuid.h>

#include <ctime>

#include "common/checks.h"

bool CltCommon::CreateGuid(char* pszGuid, uint32_t cchGuidNameSize) {
    ZEL_ASSERT(pszGuid);
    ZEL_ASSERT(cchGuidNameSize > 0);
    uuid_t uuid;
    uuid_generate(uuid);
    uuid_unparse(uuid, pszGuid);
    return true;
}

void CltCommon::FileTimeToString(std::string& strTime, uint64_t uTime) {
    ZEL_ASSERT(uTime > 0);
    strTime.clear();
}

// This clock does not jump when somebody sets the time.
uint64_t GetTickMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

std::string UintToString(uint32_t value) { return std::to_string(value); }
