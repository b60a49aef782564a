// Per-event records: what the subject of a behaviour event acted upon, by the event's type. An event owns its record
// through ST_RAW_EVENT::pPrivate.
#pragma once

#include <cstdint>
#include <string>
#include <tuple>

// 1: process created
struct ST_PROCESS_CREATE {
    uint32_t uPid = 0;
    uint32_t uTid = 0;
    std::string strImage;
    std::string strCmd;
    int64_t llCreateTime = 0;
    std::string strUser;
    std::string strGuid;
    std::string strDecodedCmd;
    std::string strMd5;
    std::string strSha256;
};

// 2: process ended
struct ST_PROCESS_EXIT {
    uint32_t uPid = 0;
    int32_t nExitCode = 0;
};

// 3: remote thread
struct ST_REMOTE_THREAD {
    uint32_t uPid = 0;
    uint32_t uTid = 0;
    std::string strImage;
    std::string strCmd;
    int64_t llCreateTime = 0;
    std::string strUser;
    uint64_t ullStartAddress = 0;
    std::string strStartModule;
    std::string strStartFunction;
};

// 4: image loaded, 5: driver loaded
struct ST_LOAD_EVENT {
    std::string strImage;
    std::string strImageSigner;
};

// 6: file created
struct ST_FILE_CREATE {
    std::string strFileType;
    std::string strFilePath;
};

// 7: file deleted
struct ST_FILE_DELETE {
    std::string strFilePath;
};

// 8: file rename
struct ST_FILE_RENAME {
    std::string strFileType;
    std::string strOldFilePath;
    std::string strNewFilePath;
};

// 9: file time changed
struct PST_FILE_TIME_CHANGE {
    std::string strFilePath;
    int64_t llPostTime = 0;
    int64_t llPreTime = 0;
};

// 10: file modified
struct PST_FILE_MODIFY {
    std::string strFileType;
    std::string strFilePath;
    std::string strFileUser;
    std::string strFileGroup;
    std::string strFilePermissions;
};

// 11: registry key created, 12: registry key deleted
struct ST_REG_OP {
    std::string strKeyPath;
};

// 13: registry value set
struct ST_REG_SET {
    std::string strKeyPath;
    std::string strValueName;
    std::string strValueData;
    uint32_t uValueType = 0;
};

// 14: network connection
struct ST_NETWORK_CONNECT {
    uint32_t uDstPort = 0;
    uint32_t uSrcPort = 0;
    std::string strDstIp;
    std::string strSrcIp;
    std::string strProtocol;
};

// 15: DNS query
struct ST_DNS_QUERY {
    std::string strDomain;
    std::string strResultIp;
};

// 16: scheduled task created
struct ST_TASK_CREATE {
    std::string strTaskName;
    std::string strTaskPath;
    std::string strTaskUser;
    std::string strTaskFreq;
};

// 17: WMI filter created
struct ST_WMIFILTER_INFO {
    std::string strUser;
    std::string strNamespace;
    std::string strName;
    std::string strQuery;
};

// 18: WMI consumer created
struct ST_WMICONSUMER_INFO {
    std::string strUser;
    std::string strWmiType;
    std::string strName;
    std::string strObject;
};

// 19: WMI binding created
struct ST_WMIBINDING_INFO {
    std::string strUser;
    std::string strFilterName;
    std::string strConsumerName;
};

// 20: account created
struct ST_ACCOUNT_CREATE {
    std::string strUserSid;
    std::string strUserName;
    std::string strDomainName;
    std::string strTargetUserSid;
    std::string strTargetUserName;
    std::string strTargetDomainName;
};

// 21: account logon
struct ST_ACCOUNT_LOGON {
    std::string strUserSid;
    std::string strUserName;
    std::string strDomainName;
    std::string strTargetUserSid;
    std::string strTargetUserName;
    std::string strTargetDomainName;
    uint32_t uTargetLogonType = 0;
};

// 22: service created
struct ST_SVRCREATE_INFO {
    std::string strServiceCmd;
    std::string strServiceName;
    int64_t llServiceStartType = 0;
};

// 23: service deleted
struct ST_SVRDEL_INFO {
    std::string strServiceName;
};

// 24: service updated
struct ST_SVRUPDATE_INFO {
    std::string strServiceCmd;
    std::string strServiceName;
    uint32_t uStartPre = 0;
    uint32_t uStartPost = 0;
};

// 25: port listened on
struct ST_PORTLISTEN_INFO {
    std::string strAddress;
    std::string strProtocol;
    uint32_t uPort = 0;
};

// 26: file opened
struct ST_FILE_OPEN_INFO {
    std::string strFileType;
    std::string strFilePath;
};

// 27: symbolic link
struct ST_SYMBOL_LINK_INFO {
    std::string strLinkName;
    std::string strTarget;
};

// 28: named pipe created
struct ST_NAMED_PIPE_CREATE_INFO {
    std::string strPipeName;
};

// 29: named pipe connected
struct ST_NAMED_PIPE_CONNECT_INFO {
    std::string strPipeName;
};

// 30: process tampered
struct ST_PROCESS_TAMPERING_INFO {
    uint32_t uPid = 0;
    int64_t llCreateTime = 0;
    std::string strImage;
    std::string strCmd;
    std::string strTamperedImage;
    uint32_t uTamperType = 0;
};

// 31: DLL injected
struct ST_DLL_INJECT_INFO {
    uint32_t uPid = 0;
    uint32_t uTid = 0;
    int64_t llCreateTime = 0;
    std::string strImage;
    std::string strCmd;
    std::string strThreadStartAddr;
    std::string strInjectedDllPath;
};

// 32: reflective injection
struct ST_REFLECTIVE_INJECT_INFO {
    uint32_t uPid = 0;
    uint32_t uTid = 0;
    int64_t llCreateTime = 0;
    std::string strImage;
    std::string strCmd;
    std::string strThreadStartAddr;
    std::string strInjectedDllPath;
    int64_t llInjectDllCreateTime = 0;
};

// 33: injection report
struct ST_INJECT_REPORT_INFO {
    uint32_t uPid = 0;
    std::string strImage;
    int64_t llCreateTime = 0;
    uint32_t uInjectType = 0;
};

// 34: socket call in a container
struct _ST_SYSCALL_SOCKET {
    int32_t nDomain = 0;
    int32_t nType = 0;
    int32_t nProto = 0;
};

// 35: ptrace call in a container
struct _ST_SYSCALL_PTRACE {
    std::string strReserved;
};

// 36: userfaultfd call in a container
struct _ST_SYSCALL_USERFAULTFD {
    std::string strReserved;
};

// 37: core pattern change in a container
struct _ST_SYSCALL_COREPATTERN {
    std::string strReserved;
};

// 38: connect call in a container
struct ST_SYSCALL_SYSCONNECT {
    std::string strUnixPath;
    uint32_t uPort = 0;
    uint64_t ullInode = 0;
    uint32_t uFdId = 0;
};

// 39: file descriptor information
struct ST_FD_INFO {
    std::string strFdContent;
    std::string strFdType;
    std::string strFdPermissions;
    uint32_t uFdId = 0;
    uint64_t ullFdLinkInode = 0;
};

namespace zel {

// The records by event type, from type 1 on. Decoders and builders take the record of a type from this list alone.
using EventRecords =
    std::tuple<ST_PROCESS_CREATE, ST_PROCESS_EXIT, ST_REMOTE_THREAD, ST_LOAD_EVENT, ST_LOAD_EVENT, ST_FILE_CREATE,
               ST_FILE_DELETE, ST_FILE_RENAME, PST_FILE_TIME_CHANGE, PST_FILE_MODIFY, ST_REG_OP, ST_REG_OP, ST_REG_SET,
               ST_NETWORK_CONNECT, ST_DNS_QUERY, ST_TASK_CREATE, ST_WMIFILTER_INFO, ST_WMICONSUMER_INFO,
               ST_WMIBINDING_INFO, ST_ACCOUNT_CREATE, ST_ACCOUNT_LOGON, ST_SVRCREATE_INFO, ST_SVRDEL_INFO,
               ST_SVRUPDATE_INFO, ST_PORTLISTEN_INFO, ST_FILE_OPEN_INFO, ST_SYMBOL_LINK_INFO, ST_NAMED_PIPE_CREATE_INFO,
               ST_NAMED_PIPE_CONNECT_INFO, ST_PROCESS_TAMPERING_INFO, ST_DLL_INJECT_INFO, ST_REFLECTIVE_INJECT_INFO,
               ST_INJECT_REPORT_INFO, _ST_SYSCALL_SOCKET, _ST_SYSCALL_PTRACE, _ST_SYSCALL_USERFAULTFD,
               _ST_SYSCALL_COREPATTERN, ST_SYSCALL_SYSCONNECT, ST_FD_INFO>;

template <uint32_t uType>
using RecordOf = std::tuple_element_t<uType - 1, EventRecords>;

}  // namespace zel
