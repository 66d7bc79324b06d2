#pragma once

#include <json/json.h>

#include <string>

// The JSON that heads publish, which has "nan" and "inf" where a computation had no result: here
// they become NaNs and infinities. Throws ClientError for anything else; `what` says what the text
// should be.
Json::Value ReadJson(const std::string& text, const std::string& what);
