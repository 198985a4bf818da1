#include "XMLParser.h"

#include <unistd.h>
#include <xercesc/dom/DOM.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/sax/HandlerBase.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLString.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

using namespace xercesc;

namespace {

// A transcoded copy owned by the caller (freed with delete[]).
char* NewNarrow(const XMLCh* text) {
    char* transcoded = XMLString::transcode(text);
    const size_t length = transcoded ? std::strlen(transcoded) : 0;
    char* copy = new char[length + 1];
    std::memcpy(copy, transcoded ? transcoded : "", length + 1);
    XMLString::release(&transcoded);
    return copy;
}

void FreeEntries(std::map<char*, char*>& entries) {
    for (auto& entry : entries) {
        delete[] entry.first;
        delete[] entry.second;
    }
    entries.clear();
}

}  // namespace

XMLParser::XMLParser() { XMLPlatformUtils::Initialize(XMLUni::fgXercescDefaultLocale); }

XMLParser::~XMLParser() { XMLPlatformUtils::Terminate(); }

void XMLParser::Parse(const char* element, std::map<char*, char*>& out) {
    out.clear();
    std::unique_ptr<XercesDOMParser> parser(new XercesDOMParser());
    std::unique_ptr<ErrorHandler> handler(new HandlerBase());
    parser->setErrorHandler(handler.get());

    char directory[1024] = {0};
    if (getcwd(directory, sizeof directory) == nullptr) directory[0] = '\0';
    const std::string path = std::string(directory) + "/datalayer.xml";
    XMLCh name[100] = {0};
    XMLString::transcode(element, name, 99);

    parser->parse(path.c_str());  // a missing or malformed file throws to the caller
    DOMDocument* document = parser->getDocument();
    if (document == nullptr) return;
    DOMNodeList* matches = document->getElementsByTagName(name);
    for (XMLSize_t i = 0; i < matches->getLength(); ++i) {
        DOMNode* match = matches->item(i);
        for (DOMNode* child = match->getFirstChild(); child != nullptr; child = child->getNextSibling()) {
            if (child->getNodeType() != DOMNode::ELEMENT_NODE) continue;  // text, comments, blanks
            out.insert(std::make_pair(NewNarrow(child->getNodeName()), NewNarrow(child->getTextContent())));
        }
    }
}

bool XMLParser::FillTicketTypeandPrimaryKey(std::map<int, std::string>& tableNames,
                                            std::map<int, std::string>& primaryKeys) {
    std::map<char*, char*> entries;
    Parse("TableCount", entries);
    if (entries.size() != 1) {
        FreeEntries(entries);
        return false;
    }
    const int count = std::atoi(entries.begin()->second);
    FreeEntries(entries);
    for (int number = 1; number <= count; ++number) {
        char element[32];
        std::snprintf(element, sizeof element, "TableName_%d", number);
        Parse(element, entries);
        std::string table, key;
        bool hasTable = false, hasKey = false;
        for (auto& entry : entries) {
            if (std::strcmp(entry.first, "tName") == 0) {
                table = entry.second;
                hasTable = true;
            } else if (std::strcmp(entry.first, "pKey") == 0) {
                key = entry.second;
                hasKey = true;
            }
        }
        FreeEntries(entries);
        if (hasTable && hasKey) {
            tableNames.insert(std::make_pair(number, table));
            primaryKeys.insert(std::make_pair(number, key));
        }
    }
    return true;
}
