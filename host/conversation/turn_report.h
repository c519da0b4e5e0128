#ifndef HOST_TURN_REPORT_H
#define HOST_TURN_REPORT_H

#include <string>
#include <vector>

namespace host {

/// The data of a turn, for --json.
struct TurnReport {
    std::string question;
    std::string answer;
    std::vector<std::string> sql;
    std::vector<std::string> results;  ///< each a JSON object with "columns", "rows" and "truncated"
    std::string model;
    std::string provider;
    double seconds = 0;  ///< from the question to the end of the answer
};

/// The turn as one JSON object on a line of its own, without the hidden secret.
[[nodiscard]] std::string writeTurnReport(const TurnReport& report);

}  // namespace host

#endif
