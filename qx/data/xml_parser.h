// xml_parser.h - the second XML document class, with its own reading and writing.
//
// The tree has the shape of QX::XML's; what differs is listed here and is required:
//
//                          QX::XML                       QX::XMLParser
//   equality               names, attributes, children   content and epilog as well
//   element names          end at '/'                    end at '/' only if '>' follows
//   named characters       253                           252: no &apos;
//   numeric references     understood                    fail
//   reads                  a buffer                      a buffer or a file
//   attributes written     <a v = 'w'>                   <av = 'w'>
//   indent                 `depth` characters of "\n"    "\n" and `depth` tabs, 32 at most;
//                          and tabs, none above 64       the root is at depth -1, with none
//   characters unnamed     &#x0100;                      UTF-8
//   end tags               all but of '!' and '?' names  all but of '!' names and the root's
#pragma once

#include "qx/base/export.h"
#include "qx/data/xml.h"

namespace QX {

class FileIn;
class FileOut;

class XMLParser : public XML_TAG<XmlEquality::text> {
public:
    // As QX::XML::parse_std_xml, with the differences above. Objects share nothing: each may parse
    // on a thread of its own.
    QX_API bool parse(char* buffer);

    // Reads the whole of an open file. False, with the tree untouched, if the file's status is not
    // FILE_OK, its size is 0 or the read comes short. A text that begins with a UTF-16 mark of
    // either order is narrowed by dropping its zero bytes, which suits ASCII.
    QX_API bool parse(FileIn& file);

    // Writes the document with its own tag. The output lacks the space in front of attributes, so
    // that only this class is to read it, on purpose. A failed write shows in the file's error.
    QX_API void write(FileOut& file, bool pretty) const;
};

}  // namespace QX
