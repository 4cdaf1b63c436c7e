#include "store/VHPropertyList.h"

#include <QFile>
#include <QSaveFile>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

namespace vh {

namespace {

QString qs(const std::string& text) {
    return QString::fromStdString(text);
}

std::vector<std::string> readStringArray(QXmlStreamReader& xml) {
    std::vector<std::string> items;
    while (xml.readNextStartElement()) {
        if (xml.name() == u"string") {
            items.push_back(xml.readElementText().toStdString());
        } else {
            xml.skipCurrentElement();
        }
    }
    return items;
}

void readDictionary(QXmlStreamReader& xml, VHPropertyList& list) {
    std::string key;
    while (xml.readNextStartElement()) {
        if (xml.name() == u"key") {
            key = xml.readElementText().toStdString();
        } else if (xml.name() == u"string") {
            list.strings[key] = xml.readElementText().toStdString();
        } else if (xml.name() == u"array") {
            list.arrays[key] = readStringArray(xml);
        } else {
            xml.skipCurrentElement();
        }
    }
}

}  // namespace

std::optional<VHPropertyList> VHPropertyList::read(const std::string& path) {
    QFile file(qs(path));
    if (!file.open(QIODevice::ReadOnly)) return std::nullopt;
    QXmlStreamReader xml(&file);
    if (!xml.readNextStartElement() || xml.name() != u"plist") return std::nullopt;
    if (!xml.readNextStartElement() || xml.name() != u"dict") return std::nullopt;
    VHPropertyList list;
    readDictionary(xml, list);
    if (xml.hasError()) return std::nullopt;
    return list;
}

bool VHPropertyList::write(const std::string& path, std::string* error) const {
    QSaveFile file(qs(path));
    if (!file.open(QIODevice::WriteOnly)) {
        if (error) *error = file.errorString().toStdString();
        return false;
    }
    QXmlStreamWriter xml(&file);
    xml.setAutoFormatting(true);
    xml.setAutoFormattingIndent(-1);  // one tab per level
    xml.writeStartDocument();
    xml.writeStartElement("plist");
    xml.writeAttribute("version", "1.0");
    xml.writeStartElement("dict");
    for (const auto& [key, value] : strings) {
        xml.writeTextElement("key", qs(key));
        xml.writeTextElement("string", qs(value));
    }
    for (const auto& [key, items] : arrays) {
        xml.writeTextElement("key", qs(key));
        xml.writeStartElement("array");
        for (const std::string& item : items) xml.writeTextElement("string", qs(item));
        xml.writeEndElement();
    }
    xml.writeEndElement();
    xml.writeEndElement();
    xml.writeEndDocument();
    if (xml.hasError() || !file.commit()) {
        if (error) *error = file.errorString().toStdString();
        return false;
    }
    return true;
}

}  // namespace vh
