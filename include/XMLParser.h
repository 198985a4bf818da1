#ifndef NORVA_XMLPARSER_H
#define NORVA_XMLPARSER_H

#include <map>
#include <string>

/// Reader of the catalogue file "datalayer.xml" in the working directory.
/// Each object initialises and terminates the XML platform; use it from one
/// thread at a time.
class XMLParser {
public:
    XMLParser();
    ~XMLParser();

    /// Fills table number -> table name and table number -> primary key.
    bool FillTicketTypeandPrimaryKey(std::map<int, std::string>& tableNames,
                                     std::map<int, std::string>& primaryKeys);

    /// Collects (child element name, child text) of every element named
    /// `element`. The map is keyed by pointer; the caller frees every key and
    /// value with delete[]. A missing or malformed file throws the XML
    /// library's exception.
    void Parse(const char* element, std::map<char*, char*>& out);
};

#endif
