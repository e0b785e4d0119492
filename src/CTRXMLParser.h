#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace TR {

// What a policy file says: the version of the code tables and which database serves which tag.
struct TR_LogTagDataMap {
    std::string m_PolicyVersion;
    // (log tag, database file name) in document order; a tag may occur more than once.
    std::vector<std::pair<std::string, std::string>> m_DatabaseList;
};

// Reads a policy file's text:
//
//   <any-root> <policy version="1.0"/> <db logtag="TAG" name="tag.db"/> ... </any-root>
//
// Element and attribute names are case-blind, nesting is not checked, anything else is ignored.
// A parser keeps no state between two calls of Parse.
class TRXMLParser {
public:
    // The attributes of one start tag. Names are kept in lower case and looked up as given, so
    // callers pass lower case.
    class TRAttributes {
    public:
        // The last of several values of a name wins.
        void Insert(std::string name, const std::string& value);

        // Each returns false, with `out` untouched, when the attribute is absent. The integers
        // take what they can read and call it success; the double must be a number to its end.
        bool GetValue(const std::string& name, std::string& out) const;
        bool GetValue(const std::string& name, bool& out) const;
        bool GetValue(const std::string& name, unsigned int& out) const;
        // 32 bits wide: at most 4294967295, which stands for everything above.
        bool GetValue(const std::string& name, unsigned long long& out) const;
        bool GetValue(const std::string& name, double& out) const;

        // Compares the whole value, ignoring ASCII case.
        bool HasAttrOfValue(const std::string& name, std::string value) const;

    private:
        [[nodiscard]] const std::string* Find(const std::string& name) const;

        std::map<std::string, std::string> m_Values;
    };

    TRXMLParser();

    // Fills `result`. Returns false when Expat refuses the text; what came before the fault is in
    // `result` all the same. The end of the document is never checked, so a text that is cut off
    // after a complete tag is accepted.
    bool Parse(const std::string& xmlText, TR_LogTagDataMap& result) const;

    static void m_StartXmlElement(void* userData, const char* name, const char** atts);
    static void m_EndXmlElement(void* userData, const char* name);
    static void m_HandlePolicyVersionInfoTag(TR_LogTagDataMap& result,
                                             const TRAttributes& attributes);
    static void m_HandleDLogDBTag(TR_LogTagDataMap& result, const TRAttributes& attributes);

private:
    using Handler = std::function<void(TR_LogTagDataMap&, const TRAttributes&)>;

    // What Expat hands back to the callbacks during one Parse.
    struct UserData {
        const TRXMLParser* m_Parser;
        TR_LogTagDataMap* m_Result;
        std::string m_CurrentElement;
    };

    std::map<std::string, Handler> m_Handlers;  // by element name in lower case
};

}  // namespace TR
