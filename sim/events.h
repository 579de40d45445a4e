#ifndef QUELVANE_SIM_EVENTS_H
#define QUELVANE_SIM_EVENTS_H

// The daemon's event lines: "_event_ WORD" followed by keyword and value
// pairs separated by single blanks.

#include "sim/model.h"

#include <string>
#include <utility>
#include <vector>

namespace qvsim {

// One event word and the keywords its line carries, in the order the daemon
// writes them ("_severity_" is carried by every line and not listed).
struct EventWord {
    const char* word;
    std::vector<const char*> keywords;
};

// The 32 event words, in event number order.
const std::vector<EventWord>& eventWords();
// The entry of `word`, null when the daemon knows no such event.
const EventWord* eventWord(const std::string& word);

using EventPairs = std::vector<std::pair<std::string, std::string>>;

// The line of one event, without its newline. Values holding blanks are
// quoted with single quotes, except the value of "_msg_", which always runs to
// the end of the line and is therefore written last.
std::string eventLine(const std::string& word, const EventPairs& pairs);

// Pairs for every keyword of `word` that `given` leaves out, with values taken
// from the model (its first node, filesystem, pool and disk), so that a bare
// "event WORD" still gives a complete line. `given` wins where it names a
// keyword; its extra keywords are kept in their order.
EventPairs completeEventPairs(const SimCluster& c, const std::string& word, const EventPairs& given);

} // namespace qvsim

#endif
