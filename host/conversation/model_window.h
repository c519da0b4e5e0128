#ifndef HOST_MODEL_WINDOW_H
#define HOST_MODEL_WINDOW_H

#include <cstddef>
#include <string>

#include "conversation/api_key.h"
#include "conversation/exchange_watch.h"
#include "conversation/provider_table.h"

namespace host {

/// Asks a service how many tokens a model accepts, question and answer together, with one request. Services have this
/// number in different members of their list of models.
/// @param apiHost  the assistant's host
/// @return 0 if the service does not tell, or does not answer
[[nodiscard]] std::size_t askModelWindow(const Provider& provider, const ApiKey& key, const std::string& apiHost,
                                         const std::string& model, ExchangeWatch& watch);

}  // namespace host

#endif
