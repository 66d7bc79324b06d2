#pragma once

#include <json/json.h>

#include <string>

// The JSON that heads publish, which holds "nan" and "inf" where a computation had no answer: here
// they are NaNs and infinities. Throws ClientError, with `what` the text was to be, for all else.
Json::Value ReadJson(const std::string& text, const std::string& what);
