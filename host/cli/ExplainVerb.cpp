#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "host/cli/ExitCode.h"
#include "host/cli/Verb.h"
#include "host/device/InputError.h"
#include "host/report/Explanation.h"
#include "host/report/StoryText.h"

namespace host::cli {

namespace {

struct ExplainOptions {
  std::string question;
  std::string trace;
  bool showsAll = false;
};

Json AsJson(const Explanation& explanation) {
  return {{"code", OrNull(explanation.code)},
          {"text", explanation.text},
          {"place", explanation.place},
          {"meaning", explanation.meaning},
          {"remedy", explanation.remedy}};
}

int ExplainTrace(const ExplainOptions& options, Output& output) {
  StoryTeller teller;
  const TraceFacts facts = ReplayTrace(options.trace, teller);
  const SessionStory story = teller.Take();
  if (output.IsJson()) output.document.update(ToJson(story, facts));
  output.Say(StoryText(story, facts, options.showsAll ? Detail::Whole : Detail::Brief));
  return output.Finish("explain", kDone);
}

int ExplainText(const ExplainOptions& options, Output& output) {
  const std::vector<Explanation> found = Explain(options.question);
  output.document["explanations"] = Json::array();
  for (const Explanation& explanation : found) {
    output.document["explanations"].push_back(AsJson(explanation));
    const std::string code = explanation.code ? fmt::format("{0} (0x{0:02X}): ", *explanation.code) : "";
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

int RunExplain(const ExplainOptions& options, Output& output) {
  if (options.question.empty() == options.trace.empty())
    throw InputError("explain what? A result code, an error text, or --trace FILE: one of them");
  return options.trace.empty() ? ExplainText(options, output) : ExplainTrace(options, output);
}

}  // namespace

void AddExplain(CLI::App& program, Job& chosen) {
  AddVerb<ExplainOptions>(
      program, chosen, "explain", "Say what an error text, a result code or a recorded session means",
      [](CLI::App& verb, ExplainOptions& options) {
        verb.add_option("text", options.question,
                        "A result code (132 or 0x84), or an error text or part of it")
            ->type_name("TEXT|CODE");
        CLI::Option* const trace =
            verb.add_option("--trace", options.trace,
                            "Tell what happened in a session that --trace has recorded")
                ->type_name("FILE");
        verb.add_flag("--all", options.showsAll, "Fold nothing: every command and message of the trace")
            ->needs(trace);
        AddJsonOption(verb);
      },
      RunExplain);
}

}  // namespace host::cli
