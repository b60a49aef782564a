// Every type that crosses the border between agent and plug-in, each as a parameter of an exported function. Most of
// them travel as pointers to nothing in particular, so no export of the plug-in names them. tools/check_abi reads the
// built library, compares the types with tests/abi/border.abi, and names a type of src/platform/ that is missing here.
// Nobody calls the functions.
#include "platform/event_ids.h"
#include "platform/interface_ids.h"
#include "platform/mbframe.h"
#include "platform/native_payloads.h"
#include "platform/zel_bp.h"
#include "platform/zel_support.h"
#include "platform/zel_trc.h"
#include "platform/zelreshdl.h"

#pragma GCC visibility push(default)

extern "C" {

void border_of_native_payloads(ST_JSON_BUFFER*, ST_COMMON_BUFFER*, ST_PB_EVENT*, ST_MEM_DETECT_INFO*, ST_DNS_NATIVE*,
                               ST_DNS_VARIANT_1*, ST_DNS_VARIANT_2*, ST_DNS_VARIANT_3*) {}

void border_of_the_bus(EVENT_ID, EVENT_ID_T, InterfaceId*, IUnknown*, MbFrame::IEvent*, MbFrame::IDnsEvent*,
                       MbFrame::IDispatch*, MbFrame::EventTableEntry*, MbFrame::IPluginSetting*, MbFrame::IPlugin*,
                       MbFrame::IRtmFrame*, MbFrame::DllGetClassObject_t) {}

void border_of_the_reports(zel_report_cb_t, register_report_cb_t, ST_BP_TRACE_HEAD*, zel_bp_init_t,
                           zel_bp_trace_utf8_t) {}

void border_of_the_modules(decltype(ZEL_TRC_COMPLETE), trace_event_init_t, trace_event_uninit_t, trace_event_release_t,
                           trace_event_work_t, ds_update_db_t) {}

void border_of_the_host(fn_server_ret_t) {}

void border_of_the_support_library(decltype(ZEL_LOG_ERROR), decltype(&zel_log_output), decltype(&zel_mutex_init),
                                   decltype(&zel_mutex_lock), decltype(&zel_mutex_unlock), decltype(&zel_mutex_destroy),
                                   decltype(&zel_thread_start), decltype(&zel_thread_join), decltype(&zel_dll_open),
                                   decltype(&zel_dll_get_addr), decltype(&zel_dll_close),
                                   decltype(&zel_dirutils_path_transform), decltype(&zel_path_is_exist_u),
                                   decltype(&zel_ini_file_load), decltype(&zel_ini_file_get),
                                   decltype(&zel_ini_file_free), decltype(&zel_str_strlcpy),
                                   decltype(&zel_str_snprintf), decltype(&zel_time_get_tick_cout),
                                   decltype(&zel_singleton_once), decltype(&zel_atomic64_add_and_fetch),
                                   decltype(&get_agent_path)) {}

}  // extern "C"

#pragma GCC visibility pop
