// Alert documents for the benchmarks.
#pragma once

#include <array>
#include <span>
#include <string>

// Keys of each kind of object in a document, in the order in which the decoder reads them.
inline constexpr std::array kRootKeys{"alert_type",   "risk_level",         "threat_score", "total_score",
                                      "verify_score", "verify_total_score", "count",        "hash",
                                      "engine_ver",   "engine_rule_ver",    "rule",         "Guid"};
inline constexpr std::array kRuleKeys{"rule_id",   "mitre_id",    "rule_desc", "status",   "score",      "version",
                                      "rule_name", "internal_id", "tags",      "risk_tag", "confidence", "event"};
inline constexpr std::array kEventKeys{
    "version",           "type",        "SubjectPid", "SubjectTid",   "SubjectImage", "SubjectCmd",
    "SubjectCreateTime", "SubjectUser", "LoginName",  "SshIp",        "SubjectMd5",   "SubjectSha256",
    "SubjectGuid",       "OpTime",      "Highlight",  "SubHighLight", "PostOpr"};

// Keys of the object of an event of this type, read behind those of every event. Types 1, 6, 8, 14 and 26.
std::span<const char* const> object_keys(unsigned type);

inline constexpr int kKindCount = 5;
inline constexpr int kRuleEvents = 100;

// A document of this many events, of the five types in turn, in rules of up to kRuleEvents events. Events of one type
// have the same size, in the document and in the message, and so have all rules.
std::string make_document(int events);
