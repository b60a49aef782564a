// What became of the events of a run and of their traces, from the host's own figures. Signed numbers: more ends than
// beginnings show as less than nothing.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "figures.h"

namespace zel {

using Figure = uint64_t KindFigures::*;

constexpr int64_t as_signed(uint64_t number) { return static_cast<int64_t>(number); }

enum class Place { before_the_bus, bus_thread, event_queue, alarm_worker };

// One way in which an event ends without a report.
struct Ending {
    Place place;
    Figure figure;
    const char* words;
};
inline constexpr Ending kEndings[] = {
    {Place::before_the_bus, &KindFigures::not_subscribed, "not subscribed"},
    {Place::bus_thread, &KindFigures::no_payload, "without payload"},
    {Place::bus_thread, &KindFigures::hot, "merged by the hot cache"},
    {Place::bus_thread, &KindFigures::queue_full, "shed, queue full"},
    {Place::bus_thread, &KindFigures::not_taken, "refused at intake"},
    {Place::event_queue, &KindFigures::ignored, "ignored"},
    {Place::alarm_worker, &KindFigures::undecoded, "not decoded"},
    {Place::alarm_worker, &KindFigures::filtered, "filtered, busy"},
    {Place::alarm_worker, &KindFigures::trigger_only, "trigger rules only"},
    {Place::alarm_worker, &KindFigures::unbuilt, "message not built"},
    {Place::alarm_worker, &KindFigures::unsent, "not sent"},
    {Place::alarm_worker, &KindFigures::no_function, "without trace module"},
    {Place::alarm_worker, &KindFigures::given_up, "given up"},
};

// Where the events of a kind are that have no end yet.
int64_t not_taken_up(const KindFigures& kind);  // published and never seen by the plug-in: in a reset or at the stop
int64_t at_intake(const KindFigures& kind);     // with the plug-in's call-back
int64_t in_queue(const KindFigures& kind);
int64_t on_worker(const KindFigures& kind);

// First pushes into the trace stage, and what it was asked for, with the completions of KOV alerts.
int64_t chains(const Totals& totals);
int64_t asked_traces(const Totals& totals);
int64_t ended_traces(const Totals& totals);

// A figure of the plug-in's reports that the host counts too.
struct CommonFigure {
    std::string_view key;  // in the report
    int64_t (*counted)(const Totals& totals);
};
std::span<const CommonFigure> common_figures();

}  // namespace zel
