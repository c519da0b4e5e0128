#include "fuzz_targets.h"

const std::vector<FuzzTarget>& obtainFuzzTargets() {
    static const std::vector<FuzzTarget> targets = [] {
        std::vector<FuzzTarget> all;
        for (const auto list : {listParserTargets, listTurnTargets, listHostTargets}) {
            for (const FuzzTarget& target : list()) {
                all.push_back(target);
            }
        }
        return all;
    }();
    return targets;
}
