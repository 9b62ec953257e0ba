#include "json/document.h"

template class nlohmann::basic_json<nlohmann::ordered_map>;
