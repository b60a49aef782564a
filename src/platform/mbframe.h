// Interfaces of the message bus liblummb.so, in the order of the slots of their virtual tables.
//
// That order is the contract. A class that derives from IUnknown has its three operations first, then the two slots of
// the virtual destructor, then its own. Functions that the plug-in never calls keep their places. Objects are counted:
// whoever got a reference gives it back with Release.
#pragma once

#include <cstdint>

#include "platform/interface_ids.h"

// The base of every counted interface: a virtual table and a 64-bit count. AddRef and Release answer the new count.
class IUnknown {
public:
    virtual int32_t QueryInterface(const InterfaceId* iid, void** out) = 0;  // slot 1; negative is failure
    virtual int64_t AddRef() { return ++count_; }                            // slot 2
    virtual int64_t Release() { return --count_; }                           // slot 3
    virtual ~IUnknown() = default;                                           // slots 4 and 5

private:
    int64_t count_ = 0;
};

namespace MbFrame {

// An event in either direction. Any thread may call it as long as the caller holds a reference.
class IEvent : public IUnknown {
public:
    virtual uint32_t GetEventId() = 0;        // slot 6
    virtual void* GetNativeEvent() = 0;       // slot 7; the record lives as long as the event and is the event's own
    virtual int32_t GetPublishedState() = 0;  // slot 8; the bus's name for it is not known, outgoing events answer 1
};

// The second interface of a DNS event, reached by QueryInterface. It shares the count of the event.
class IDnsEvent : public IUnknown {
public:
    virtual void reserved6() = 0;
    virtual void reserved7() = 0;
    virtual void reserved8() = 0;
    virtual const char* GetQueryName() = 0;  // slot 9; lives as long as the event
};

// Takes the events that a plug-in publishes. It adds a reference of its own to each event that it keeps.
class IDispatch {
public:
    virtual int32_t Invoke(IEvent* event) = 0;  // slot 1

protected:
    ~IDispatch() = default;
};

// One row of a subscription table.
struct EventTableEntry {
    uint32_t uEventId;
    uint32_t uFlag;
};

// Given to OnAdvised and valid during that call.
class IPluginSetting {
public:
    virtual int32_t SetOption(uint32_t value) = 0;                                    // slot 1
    virtual int32_t reserved2() = 0;                                                  // slot 2
    virtual int32_t SetEventTable(const EventTableEntry* table, uint32_t count) = 0;  // slot 3; copied by the bus

protected:
    ~IPluginSetting() = default;
};

// What a plug-in offers the bus. The bus calls it; the plug-in never does.
class IPlugin : public IUnknown {
public:
    virtual int32_t GetPluginId(unsigned char* out) = 0;                            // slot 6; 16 bytes
    virtual int32_t GetPluginKind(uint32_t* out) = 0;                               // slot 7
    virtual int32_t OnAdvised(IPluginSetting* Setting, IDispatch* Dispatcher) = 0;  // slot 8; on the thread of Advise
    virtual int32_t OnNotify(uint32_t code) = 0;                                    // slot 9
    virtual int32_t OnEvent(IEvent* Evt,
                            void* context) = 0;  // slot 10; on a bus thread, Evt is released by the plug-in
    virtual int32_t OnQuery(void* context) = 0;  // slot 11
};

// The frame object of the bus: attaches and detaches plug-ins.
class IRtmFrame : public IUnknown {
public:
    virtual void reserved6() = 0;
    virtual void reserved7() = 0;
    virtual int32_t Advise(IPlugin* plugin, uint32_t flag) = 0;    // slot 8; calls OnAdvised before it returns 0
    virtual int32_t Unadvise(const unsigned char* plugin_id) = 0;  // slot 9; no OnEvent runs or starts after it
};

// Exported by the library as "DllGetClassObject". 0 on success.
using DllGetClassObject_t = int32_t (*)(const InterfaceId* class_id, const InterfaceId* iid, void** out);

}  // namespace MbFrame
