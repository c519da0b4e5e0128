#ifndef HOST_MODEL_WINDOW_H
#define HOST_MODEL_WINDOW_H

#include <cstddef>
#include <string>

#include "conversation/api_key.h"
#include "conversation/exchange_watch.h"
#include "conversation/provider_table.h"

namespace host {

/// Asks a service how many tokens a model takes, question and answer together, by the member of its list of models that
/// services have for it. One request.
/// @param apiHost  as the assistant has it
/// @return 0 where the service does not tell, or does not answer
[[nodiscard]] std::size_t askModelWindow(const Provider& provider, const ApiKey& key, const std::string& apiHost,
                                         const std::string& model, ExchangeWatch& watch);

}  // namespace host

#endif
