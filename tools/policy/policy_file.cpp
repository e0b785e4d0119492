#include "policy/policy_file.h"

#include <expat.h>

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <new>
#include <string_view>
#include <system_error>

#include "io/input.h"

namespace trelvo {

namespace {

std::string Lower(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return lower;
}

void OnElement(void* user_data, const XML_Char* name, const XML_Char** pairs) {
    auto& policy = *static_cast<PolicyFile*>(user_data);
    std::map<std::string, std::string> attributes;  // an absent one reads as empty
    for (; pairs[0] != nullptr; pairs += 2) {
        attributes[Lower(pairs[0])] = pairs[1];
    }
    const std::string element = Lower(name);
    if (element == "policy") {
        policy.version = attributes["version"];
    } else if (element == "db") {
        policy.databases.emplace_back(attributes["logtag"], attributes["name"]);
    }
}

// Throws PolicyError.
std::string ReadWhole(const std::string& path) {
    try {
        FileInput input(path);
        std::string text;
        std::array<char, 16384> buffer{};
        while (const size_t count = input.Read(buffer.data(), buffer.size())) {
            text.append(buffer.data(), count);
        }
        return text;
    } catch (const std::system_error& error) {
        throw PolicyError(path + ": " + error.what());
    }
}

}  // namespace

PolicyFile ReadPolicyFile(const std::string& path) {
    const std::string text = ReadWhole(path);
    const std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)> parser(
        XML_ParserCreate(nullptr), XML_ParserFree);
    if (!parser) {
        throw std::bad_alloc();
    }
    PolicyFile policy;
    XML_SetUserData(parser.get(), &policy);
    XML_SetElementHandler(parser.get(), OnElement, nullptr);

    // Never told that the text is over, so that a cut one gives what is whole. In one call: after
    // an incomplete token Expat puts off what comes next, here for ever.
    if (XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), XML_FALSE) !=
        XML_STATUS_OK) {
        throw PolicyError(path + ": line " +
                          std::to_string(XML_GetCurrentLineNumber(parser.get())) + ": " +
                          XML_ErrorString(XML_GetErrorCode(parser.get())));
    }
    return policy;
}

}  // namespace trelvo
