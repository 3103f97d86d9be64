// Reads and rewrites preset documents with TinyXML, the parser the service
// itself reads them with.
#include "tools/PresetDocument.h"

#include <tinyxml.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace evc {
namespace tools {

namespace {

TiXmlElement* Compressor(TiXmlDocument& document)
{
    TiXmlElement* root = document.FirstChildElement();
    if (root == nullptr || root->ValueStr() != "Output")
        return nullptr;
    return root->FirstChildElement("VideoCompressor");
}

TiXmlElement* Setting(TiXmlElement* compressor, const std::string& name, const char* section)
{
    for (TiXmlElement* list = compressor->FirstChildElement(section); list != nullptr;
         list = list->NextSiblingElement(section))
        for (TiXmlElement* setting = list->FirstChildElement(name); setting != nullptr;
             setting = setting->NextSiblingElement(name))
            return setting;
    return nullptr;
}

void Parse(TiXmlDocument& document, const std::string& text, const std::string& source)
{
    document.Parse(text.c_str(), nullptr, TIXML_ENCODING_UTF8);
    if (document.Error())
        throw PresetError("preset " + source + " is not XML: " + document.ErrorDesc());
    if (Compressor(document) == nullptr)
        throw PresetError("preset " + source + " has no <Output><VideoCompressor> element");
}

}  // namespace

PresetDocument::PresetDocument(const std::string& text, const std::string& source) : m_text(text), m_source(source)
{
    TiXmlDocument document;
    Parse(document, text, source);
    TiXmlElement* compressor = Compressor(document);
    // Codes above 2^31 are written as unsigned decimals.
    const char* m = compressor->Attribute("Manufacture4cc");
    const char* c = compressor->Attribute("Codec4cc");
    if (m == nullptr || c == nullptr)
        throw PresetError("preset " + source + " does not name its compressor's codes");
    m_manufacturer = static_cast<uint32_t>(std::strtoull(m, nullptr, 10));
    m_codec = static_cast<uint32_t>(std::strtoull(c, nullptr, 10));
}

std::string PresetDocument::value(const std::string& name) const
{
    TiXmlDocument document;
    Parse(document, m_text, m_source);
    TiXmlElement* compressor = Compressor(document);
    for (const char* section : {"StandardSettings", "NonStandardSettings"})
        if (TiXmlElement* setting = Setting(compressor, name, section))
            if (const char* v = setting->Attribute("Value"))
                return v;
    return "";
}

void PresetDocument::apply(const std::vector<SettingOverride>& overrides)
{
    if (overrides.empty())
        return;
    TiXmlDocument document;
    Parse(document, m_text, m_source);
    TiXmlElement* compressor = Compressor(document);
    for (const SettingOverride& o : overrides) {
        const char* section = o.standard ? "StandardSettings" : "NonStandardSettings";
        TiXmlElement* setting = Setting(compressor, o.name, section);
        if (setting == nullptr) {
            TiXmlElement* list = compressor->FirstChildElement(section);
            if (list == nullptr)
                list = compressor->InsertEndChild(TiXmlElement(section))->ToElement();
            setting = list->InsertEndChild(TiXmlElement(o.name))->ToElement();
            setting->SetAttribute("Type", o.kind);
        }
        setting->SetAttribute("Value", o.value);
    }
    TiXmlPrinter printer;
    document.Accept(&printer);
    m_text = printer.Str();
}

PresetDocument ReadPresetFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw PresetError("cannot read preset " + path + ": " + std::strerror(errno));
    std::ostringstream text;
    text << file.rdbuf();
    return PresetDocument(text.str(), path);
}

}  // namespace tools
}  // namespace evc
