#include "CTRXMLParser.h"

#include <expat.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <type_traits>

#include "Log.h"

namespace TR {

namespace {

std::string ToLower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return text;
}

}  // namespace

void TRXMLParser::TRAttributes::Insert(std::string name, const std::string& value) {
    m_Values[ToLower(std::move(name))] = value;
}

const std::string* TRXMLParser::TRAttributes::Find(const std::string& name) const {
    const auto found = m_Values.find(name);
    return found == m_Values.end() ? nullptr : &found->second;
}

bool TRXMLParser::TRAttributes::GetValue(const std::string& name, std::string& out) const {
    const std::string* const value = Find(name);
    if (value == nullptr) {
        return false;
    }
    out = *value;
    return true;
}

bool TRXMLParser::TRAttributes::GetValue(const std::string& name, bool& out) const {
    const std::string* const value = Find(name);
    if (value == nullptr) {
        return false;
    }
    const std::string text = ToLower(*value);
    out = text != "false" && text != "0";
    return true;
}

bool TRXMLParser::TRAttributes::GetValue(const std::string& name, unsigned int& out) const {
    const std::string* const value = Find(name);
    if (value == nullptr) {
        return false;
    }
    // A value without a number leaves `out` as it was and still counts as present.
    static_cast<void>(std::sscanf(value->c_str(), "%u", &out));  // NOLINT(cert-err34-c)
    return true;
}

bool TRXMLParser::TRAttributes::GetValue(const std::string& name, unsigned long long& out) const {
    const std::string* const value = Find(name);
    if (value == nullptr) {
        return false;
    }
    // What strtoul gives where unsigned long has 32 bits, as on the device: a negative number
    // wraps, and one that is too large, of either sign, is the largest.
    constexpr long long kMax = std::numeric_limits<uint32_t>::max();
    const long long number = std::strtoll(value->c_str(), nullptr, 10);
    out = static_cast<uint32_t>(number < -kMax || number > kMax ? kMax : number);
    return true;
}

bool TRXMLParser::TRAttributes::GetValue(const std::string& name, double& out) const {
    const std::string* const value = Find(name);
    if (value == nullptr) {
        return false;
    }
    char* end = nullptr;
    const double number = std::strtod(value->c_str(), &end);
    if (end == nullptr || *end != '\0') {
        return false;
    }
    out = number;
    return true;
}

bool TRXMLParser::TRAttributes::HasAttrOfValue(const std::string& name, std::string value) const {
    const std::string* const found = Find(name);
    return found != nullptr && ToLower(*found) == ToLower(std::move(value));
}

TRXMLParser::TRXMLParser()
    : m_Handlers{{"policy", m_HandlePolicyVersionInfoTag}, {"db", m_HandleDLogDBTag}} {}

bool TRXMLParser::Parse(const std::string& xmlText, TR_LogTagDataMap& result) const {
    struct FreeParser {
        void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
    };
    const std::unique_ptr<std::remove_pointer_t<XML_Parser>, FreeParser> parser(
        XML_ParserCreate(nullptr));
    if (parser == nullptr) {
        TR_LOGE("Couldnt create parser");
        return false;
    }
    UserData data{this, &result, {}};
    XML_SetUserData(parser.get(), &data);
    // No end handler: nothing here depends on nesting.
    XML_SetElementHandler(parser.get(), m_StartXmlElement, nullptr);
    TR_LOGI("%s", xmlText.c_str());

    // Not marked as the final chunk, so a file that lost its end still gives the databases that it
    // names completely.
    if (XML_Parse(parser.get(), xmlText.data(), static_cast<int>(xmlText.size()), 0) ==
        XML_STATUS_ERROR) {
        TR_LOGE("Error while parsing xml: %s, line: %lu, col: %lu",
                XML_ErrorString(XML_GetErrorCode(parser.get())),
                static_cast<unsigned long>(XML_GetCurrentLineNumber(parser.get())),
                static_cast<unsigned long>(XML_GetCurrentColumnNumber(parser.get())));
        TR_LOGE("Parsing failed.");
        return false;
    }
    return true;
}

void TRXMLParser::m_StartXmlElement(void* userData, const char* name, const char** atts) {
    if (userData == nullptr || name == nullptr || atts == nullptr) {
        return;
    }
    TRAttributes attributes;
    for (; *atts != nullptr; atts += 2) {
        attributes.Insert(atts[0], atts[1]);
    }
    auto* const data = static_cast<UserData*>(userData);
    const std::string element = ToLower(name);
    if (data->m_Parser != nullptr && data->m_Result != nullptr) {
        const auto handler = data->m_Parser->m_Handlers.find(element);
        if (handler != data->m_Parser->m_Handlers.end()) {
            handler->second(*data->m_Result, attributes);
        }
    }
    data->m_CurrentElement = element;
}

// Not installed by Parse; kept for a policy format whose elements depend on their place.
void TRXMLParser::m_EndXmlElement(void* userData, const char* /*name*/) {
    auto* const data = static_cast<UserData*>(userData);
    TR_LOGI("clear current element (%s)", data->m_CurrentElement.c_str());
    data->m_CurrentElement.clear();
}

void TRXMLParser::m_HandlePolicyVersionInfoTag(TR_LogTagDataMap& result,
                                               const TRAttributes& attributes) {
    std::string version;
    static_cast<void>(attributes.GetValue("version", version));
    TR_LOGI("POLICY_VERSION [%s]", version.c_str());
    result.m_PolicyVersion = std::move(version);
}

void TRXMLParser::m_HandleDLogDBTag(TR_LogTagDataMap& result, const TRAttributes& attributes) {
    std::string logTag;
    std::string database;
    static_cast<void>(attributes.GetValue("logtag", logTag));
    static_cast<void>(attributes.GetValue("name", database));
    TR_LOGI("DB_LOGTAG [%s], DB_NAME [%s]", logTag.c_str(), database.c_str());
    result.m_DatabaseList.emplace_back(std::move(logTag), std::move(database));
}

}  // namespace TR
