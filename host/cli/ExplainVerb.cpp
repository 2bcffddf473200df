#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "host/cli/ExitCode.h"
#include "host/cli/Verb.h"
#include "host/report/Explanation.h"

namespace host::cli {

namespace {

struct ExplainOptions {
  std::string question;
};

Json AsJson(const Explanation& explanation) {
  return {{"code", explanation.code < 0 ? Json(nullptr) : Json(explanation.code)},
          {"text", explanation.text},
          {"place", explanation.place},
          {"meaning", explanation.meaning},
          {"remedy", explanation.remedy}};
}

int ExplainText(const ExplainOptions& options, Output& output) {
  const std::vector<Explanation> found = Explain(options.question);
  output.document["explanations"] = Json::array();
  for (const Explanation& explanation : found) {
    output.document["explanations"].push_back(AsJson(explanation));
    const std::string code =
        explanation.code < 0 ? "" : fmt::format("{} (0x{:02X}): ", explanation.code, explanation.code);
    const std::string place =
        explanation.place.empty() ? "" : fmt::format(" (when it comes with: {})", explanation.place);
    output.Say(fmt::format("{}{}{}\n  What it means: {}\n  What to do:    {}\n", code, explanation.text,
                           place, explanation.meaning, explanation.remedy));
  }
  if (!found.empty()) return output.Finish("explain", kDone);
  const std::string error = fmt::format("no explanation for \"{}\"", options.question);
  output.Complain(error);
  return output.Finish("explain", kFailed, error);
}

}  // namespace

void AddExplain(CLI::App& program, Job& chosen) {
  AddVerb<ExplainOptions>(
      program, chosen, "explain", "Say what an error text or result code means and what to do",
      [](CLI::App& verb, ExplainOptions& options) {
        verb.add_option("text", options.question,
                        "A result code (132 or 0x84), or an error text or part of it")
            ->required()
            ->type_name("TEXT|CODE");
        AddJsonOption(verb);
      },
      ExplainText);
}

}  // namespace host::cli
