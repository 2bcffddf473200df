#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/load/SessionStory.h"
#include "host/plugin/TraceReader.h"
#include "host/report/ExchangeText.h"
#include "host/report/Format.h"

namespace host {

// A recorded session for a person, in 80 columns. Brief: what is alike is folded into one line, and messages
// are cut to a line and not repeated.
std::string StoryText(const SessionStory& story, const TraceFacts& facts, Detail detail);

// The same for a program, whole: docs/json.md.
Json ToJson(const SessionStory& story, const TraceFacts& facts);

// The calls into the plug-in and what each did, a line an event.
std::string StoryLines(const SessionStory& story, Detail detail);
// "WriteDataToFlash 0x00000800, 2,048 bytes"
std::string CallTitle(const ToldCall& call);
// What is missing at the end of the trace, and what in the story.
std::vector<std::string> NotesOn(const SessionStory& story, const TraceFacts& facts);
// The first failure, as that of a load; no failure where there is none.
LoadRecord FailedLoad(const SessionStory& story);

}  // namespace host
