#include <fnmatch.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

#include "host/check/PluginCheck.h"

// The real plug-in, and one that does everything as it does but for one thing, held to the contract.

namespace {

// What is found at several places is one line, and so are several things at the same.
std::vector<std::string> Found(const std::vector<host::CheckResult>& results) {
  std::vector<std::pair<std::string, std::string>> found;
  for (const host::CheckResult& result : results) {
    if (!result.wasMade) found.emplace_back(result.check->name, "is not made");
    for (const auto& [place, text] : result.findings) {
      const auto known = std::ranges::find(found, text, &std::pair<std::string, std::string>::second);
      if (known == found.end())
        found.emplace_back(place, text);
      else
        known->first += "; " + place.substr(place.find(' ') + 1);
    }
  }
  std::vector<std::string> lines;
  for (std::size_t i = 0; i < found.size(); ++i)
    if (i > 0 && found[i].first == found[i - 1].first)
      lines.back() += "; " + found[i].second;
    else
      lines.push_back(found[i].first + ": " + found[i].second);
  return lines;
}

std::vector<host::CheckResult> Check(const std::filesystem::path& plugin, std::vector<std::string> only,
                                     const std::vector<std::filesystem::path>& devices, int seconds) {
  host::PluginCheckRequest request{plugin, {}, std::move(only), std::chrono::seconds(seconds)};
  for (const std::filesystem::path& device : devices)
    request.devices.push_back(host::ReadDeviceDescription(device));
  return host::CheckPlugin(request, [](const host::CheckResult&) {});
}

TEST(CheckPlugin, IsContentWithTheRealOne) {
  // Of all devices together: what is asked of a plug-in does not become less unnoticed.
  std::map<std::string, std::uint64_t> counts = {
      {"exports", 1},  {"contract", 125},      {"loads", 114},       {"words", 20586},
      {"memory", 240}, {"failed-calls", 2602}, {"chip-faults", 505}, {"operations", 80}};
  if (TOVIK_SAMPLED_SWEEPS) counts.erase("failed-calls");
  std::vector<std::string> checks(counts.size());
  std::ranges::transform(counts, checks.begin(), [](const auto& count) { return count.first; });
  for (const host::CheckResult& result :
       Check(TOVIK_PLUGIN_PATH, checks, host::ListDeviceFiles(TOVIK_DEVICES_DIR), 60)) {
    EXPECT_THAT(Found({result}), testing::IsEmpty()) << result.check->name;
    EXPECT_EQ(result.count, counts.at(std::string(result.check->name))) << result.check->name;
  }
}

MATCHER_P(IsLike, pattern, "") {
  return fnmatch(pattern.c_str(), arg.c_str(), FNM_NOESCAPE) == 0;
}

struct BrokenPlugin {
  std::string fault, device;
  std::vector<std::string> checks;
  std::vector<testing::Matcher<std::string>> findings;
};

// From the text file beside this one, which says how it is read.
std::vector<BrokenPlugin> BrokenPlugins() {
  std::vector<BrokenPlugin> plugins;
  std::ifstream file(TOVIK_BROKEN_PLUGINS);
  for (std::string line; std::getline(file, line);) {
    const std::size_t bar = line.find('|');
    if (line.starts_with('#')) continue;
    std::istringstream words(line.substr(0, bar));
    if (BrokenPlugin one; words >> one.fault >> one.device) {
      one.checks.assign(std::istream_iterator<std::string>(words), {});
      plugins.push_back(one);
    }
    plugins.back().findings.emplace_back(IsLike(line.substr(bar + 2)));
  }
  return plugins;
}

TEST(CheckPlugin, FindsTheOneThingThatIsWrong) {
  const std::filesystem::path folder = TOVIK_BROKEN_PLUGIN_PATH ".links";
  std::filesystem::create_directories(folder);
  std::vector<BrokenPlugin> plugins = BrokenPlugins();
  ASSERT_FALSE(plugins.empty());
  std::size_t turn = 0;
  for (BrokenPlugin& broken : plugins) {
    if (TOVIK_SAMPLED_SWEEPS && ++turn % 2 == 0) continue;  // with sanitizers each takes three times as long
    const std::filesystem::path plugin = folder / (broken.fault + ".so");
    std::filesystem::remove(plugin);
    std::filesystem::create_symlink(TOVIK_BROKEN_PLUGIN_PATH, plugin);
    const bool isAll = broken.checks.back() != "...";
    if (!isAll) broken.checks.pop_back();
    const std::filesystem::path device = TOVIK_DEVICES_DIR "/" + broken.device + ".xml";
    const std::vector<std::string> found =
        Found(Check(plugin, broken.checks, {device}, broken.fault == "hang" ? 1 : 60));
    SCOPED_TRACE(broken.fault + " " + broken.device + " " + broken.checks.front());
    if (isAll)
      EXPECT_THAT(found, testing::ElementsAreArray(broken.findings));
    else
      EXPECT_THAT(found, testing::IsSupersetOf(broken.findings));
  }
  std::filesystem::remove_all(folder);
}

}  // namespace
