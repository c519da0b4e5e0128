#ifndef TESTS_SERVICE_SHAPES_H
#define TESTS_SERVICE_SHAPES_H

#include <ostream>
#include <string>
#include <vector>

#include "kai.h"

/// What one public service or model server sends, and what a host makes of it. Every answer is "Count them: 3.";
/// streamed, it comes in the pieces "Count them: " and "3.".
struct ServiceShapes {
    std::string name;
    KAIAssistantType type;
    std::string path;  ///< behind the authority in the host text
    bool isPlain;      ///< listens without TLS
    std::string models;
    std::vector<std::string> modelNames;
    std::string modelsError;  ///< in place of the names
    std::string reply;
    std::string stream;
    int errorStatus;
    std::string error;
    std::string errorText;

    /// How a failing test names it.
    friend void PrintTo(const ServiceShapes& shapes, std::ostream* out) { *out << shapes.name; }
};

/// Written from the services' documentation and published descriptions of their answers as of 2026-11-21, not recorded
/// with a key.
[[nodiscard]] const std::vector<ServiceShapes>& listServiceShapes();

#endif
