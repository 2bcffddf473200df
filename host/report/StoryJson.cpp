#include <nlohmann/json.hpp>

#include "host/report/LoadText.h"
#include "host/report/StoryText.h"

namespace host {

namespace {

const char* KeyOf(Spending spending) {
  switch (spending) {
    case Spending::Words: return "words";
    case Spending::Memory: return "memory";
    case Spending::Registers: return "registers";
    case Spending::Connections: return "connections";
    case Spending::AnswerSleeps: return "answer_sleeps";
    case Spending::OtherSleeps: return "other_sleeps";
    case Spending::OtherCalls: return "other_calls";
    case Spending::Outside: return "outside";
    case Spending::RoundTrips: return "round_trips";
  }
  return "?";
}

// What an event has beyond its times.
struct EventJson {
  std::uint32_t sectorSize;

  Json operator()(const ToldExchange& told) const {
    const SaciExchange& exchange = told.exchange;
    const AddressRange range = exchange.MainRange();
    const auto result = exchange.Result();
    return {{"event", "command"},
            {"text", ExchangeText(told, sectorSize, Detail::Whole)},
            {"command", exchange.command},
            {"sequence", exchange.sequence},
            {"argument", exchange.argument},
            {"address", range.size != 0 ? Json(range.base) : Json(nullptr)},
            {"bytes", range.size != 0 ? Json(range.size) : Json(nullptr)},
            {"result", OrNull(result)},
            {"result_name", result ? Json(SaciResultName(*result)) : Json(nullptr)},
            {"failed", exchange.HasFailed()},
            {"slept_ms", Milliseconds(told.sleptNs)},
            {"first_call", exchange.firstCall},
            {"last_call", exchange.lastCall}};
  }
  Json operator()(const TargetReset& reset) const {
    return {{"event", "reset"}, {"into_saci", reset.intoSaci}};
  }
  Json operator()(const MemoryAccess& access) const {
    return {{"event", access.isWrite ? "write" : "read"},
            {"address", access.range.base},
            {"bytes", access.range.size},
            {"failed", access.hasFailed}};
  }
  Json operator()(const LoadMessage& message) const {
    return {{"event", "message"}, {"kind", message.isError ? "error" : "info"}, {"text", message.text}};
  }
  Json operator()(const FailedHostCall& call) const {
    return {
        {"event", "failed call"}, {"call", call.number}, {"function", call.function}, {"text", call.error}};
  }
};

Json CallJson(const ToldCall& call, std::uint32_t sectorSize) {
  Json json = {{"function", call.function},
               {"name", call.subject},
               {"address", OrNull(call.address)},
               {"bytes", OrNull(call.bytes)},
               {"begin_ms", Milliseconds(call.beginNs)},
               {"end_ms", call.endNs ? Json(Milliseconds(*call.endNs)) : Json(nullptr)},
               {"host_calls", call.hostCalls},
               {"round_trips", call.roundTrips},
               {"error", call.failure ? Json(call.failure->text) : Json(nullptr)}};
  json["events"] = Json::array();
  for (const StoryEvent& event : call.events) {
    Json told = std::visit(EventJson{sectorSize}, event.what);
    told["begin_ms"] = Milliseconds(event.beginNs);
    told["end_ms"] = Milliseconds(event.endNs);
    told["round_trips"] = event.roundTrips;
    json["events"].push_back(std::move(told));
  }
  return json;
}

}  // namespace

Json ToJson(const SessionStory& story, const TraceFacts& facts) {
  Json json;
  json["trace"] = {{"program", facts.header.program},
                   {"plugin", facts.header.plugin},
                   {"device", facts.header.device},
                   {"probe", facts.header.probe},
                   {"lines", facts.lines}};
  json["found"] = {
      {"flash_size", story.flashSize}, {"ram_size", story.ramSize}, {"revision", story.revision}};
  json["notes"] = NotesOn(story, facts);
  json["stopped_in"] = story.Unended() != nullptr ? Json(story.Unended()->function) : Json(nullptr);
  json["calls"] = Json::array();
  for (const ToldCall& call : story.calls) json["calls"].push_back(CallJson(call, story.map.sectorSize));
  json["elapsed_ms"] = Milliseconds(story.endNs);
  json["phases_ms"] = PhasesJson(story.phaseNs);
  json["time_ms"] = Json::object();
  for (const TimeShare& share : story.time.Shares())
    json["time_ms"][KeyOf(share.spending)] = Milliseconds(share.ns);
  json["failure"] = FailureJson(FailedLoad(story));
  return json;
}

}  // namespace host
