#include <fmt/format.h>

#include <cctype>
#include <nlohmann/json.hpp>

#include "host/report/FailureText.h"
#include "host/report/LoadText.h"

namespace host {

namespace {

constexpr int kSchema = 1;  // of docs/json.md

Json RangesJson(const std::vector<AddressRange>& ranges) {
  Json list = Json::array();
  for (const AddressRange range : ranges) list.push_back({{"address", range.base}, {"bytes", range.size}});
  return list;
}

Json RegionsJson(const LoadRecord& record) {
  Json list = Json::array();
  for (const RegionRecord& region : record.regions) {
    list.push_back({{"region", RegionName(region.region)},
                    {"ranges", RangesJson(region.ranges)},
                    {"bytes", region.bytes},
                    {"sectors", region.sectors},
                    {"crc32", fmt::format("0x{:08x}", region.crc)},
                    {"outcome", OutcomeText(region.outcome)}});
    list.back()["bytes_adapted"] = region.adaptedBytes ? Json(*region.adaptedBytes) : Json(nullptr);
  }
  return list;
}

// "program_main" of "program MAIN"
std::string Key(std::string_view name) {
  std::string key(name);
  for (char& c : key) c = c == ' ' ? '_' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return key;
}

Json SectorsJson(const LoadRecord& record) {
  std::string map;
  for (const SectorState state : record.sectors) map += static_cast<char>(state);
  Json sectors = {{"size", record.sectorSize}, {"map", map}};
  for (const SectorState state : kSectorStates)
    sectors[Key(SectorStateName(state))] = CountSectors(record.sectors, state);
  sectors["differing"] = RangesJson(record.differences);
  return sectors;
}

}  // namespace

Json FailureJson(const LoadRecord& record) {
  if (!record.failure) return nullptr;
  const LoadFailure& failure = *record.failure;
  const Advice advice = AdviceOn(record);
  Json json = {{"text", failure.text}};
  json["phase"] = failure.phase ? Json(PhaseName(*failure.phase)) : Json(nullptr);
  json["region"] = failure.region ? Json(RegionName(*failure.region)) : Json(nullptr);
  json["address"] = failure.range.size != 0 ? Json(failure.range.base) : Json(nullptr);
  json["bytes"] = failure.range.size != 0 ? Json(failure.range.size) : Json(nullptr);
  json["sector"] = OrNull(failure.firstSector);
  json["command"] = OrNull(failure.command);
  json["result"] = OrNull(failure.result);
  json["result_name"] = failure.result ? Json(SaciResultName(*failure.result)) : Json(nullptr);
  json["cause"] = advice.cause;
  json["remedy"] = advice.remedy;
  return json;
}

Json PhasesJson(const std::array<std::uint64_t, kPhaseCount>& phaseNs) {
  Json phases = Json::object();
  for (std::size_t phase = 0; phase < kPhaseCount; ++phase)
    if (phaseNs[phase] != 0) phases[Key(PhaseName(static_cast<Phase>(phase)))] = Milliseconds(phaseNs[phase]);
  return phases;
}

Json ToJson(const LoadRecord& record) {
  Json json = {
      {"schema", kSchema},
      {"mode", record.mode == LoadMode::Verify ? "verify" : "program"},
      {"dry_run", record.isDryRun},
      {"interrupted", record.isInterrupted},
      {"device", record.device},
      {"found",
       {{"flash_size", record.flashSize}, {"ram_size", record.ramSize}, {"revision", record.revision}}}};
  json["images"] = Json::array();
  for (const PlannedImage& image : record.images)
    json["images"].push_back(
        {{"name", image.name}, {"format", image.format}, {"bytes", image.bytes}, {"sha256", image.sha256}});
  json["erase"] = record.mode == LoadMode::Verify ? Json(nullptr) : Json(record.erase);
  json["warnings"] = record.warnings;
  json["regions"] = RegionsJson(record);
  json["sectors"] = SectorsJson(record);
  json["bytes_changed"] = record.changes.empty() ? Json(nullptr) : Json::object();
  for (const RegionChange& change : record.changes)
    json["bytes_changed"][std::string(RegionName(change.region))] = change.bytes;
  json["messages"] = ToJson(record.messages);
  json["notes"] = record.notes;
  json["failure"] = FailureJson(record);
  json["error"] = record.failure ? Json(record.failure->text) : Json(nullptr);
  json["elapsed_ms"] = Milliseconds(record.elapsedNs);
  json["phases_ms"] = PhasesJson(record.phaseNs);
  json["wire_bytes"] = record.wireBytes;
  json["host_calls"] = record.hostCalls;
  json["round_trips"] = OrNull(record.roundTrips);
  return json;
}

}  // namespace host
