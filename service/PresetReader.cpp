#include "service/PresetReader.h"

#include <cstring>
#include <tinyxml.h>

namespace {

// The root element of a parsed preset, or null when it is not "Output".
// Parse errors are not examined: whatever the parser built is used.
TiXmlElement* PresetRoot(TiXmlDocument& document, const std::string& preset)
{
    document.Parse(preset.c_str(), nullptr, TIXML_ENCODING_UTF8);
    TiXmlElement* root = TiXmlHandle(&document).FirstChildElement().ToElement();
    if (root == nullptr || root->ValueStr() != "Output")
        return nullptr;
    return root;
}

// A node's first child when that is an element; a comment or text there
// counts as no element at all.
TiXmlElement* FirstChildIfElement(TiXmlNode* node)
{
    TiXmlNode* child = node != nullptr ? node->FirstChild() : nullptr;
    return child != nullptr ? child->ToElement() : nullptr;
}

bool SameName(const char* settingName, const std::string& elementName)
{
    return settingName != nullptr && std::strlen(settingName) == elementName.size() &&
           std::memcmp(settingName, elementName.data(), elementName.size()) == 0;
}

}  // namespace

bool DeSerializeVideoCodec4cc(std::string& preset, unsigned int& manufacturer, unsigned int& codec)
{
    TiXmlDocument document;
    TiXmlElement* root = PresetRoot(document, preset);
    if (root == nullptr)
        return false;
    TiXmlNode* node = root->FirstChild("VideoCompressor");
    if (TiXmlElement* compressor = node != nullptr ? node->ToElement() : nullptr) {
        int value = 0;
        if (compressor->QueryIntAttribute("Manufacture4cc", &value) == TIXML_SUCCESS)
            manufacturer = static_cast<unsigned int>(value);
        if (compressor->QueryIntAttribute("Codec4cc", &value) == TIXML_SUCCESS)
            codec = static_cast<unsigned int>(value);
    }
    return true;
}

bool DeSerializeVideoCodecSettings(std::string& preset, IVideoCompressor* compressor)
{
    TiXmlDocument document;
    TiXmlElement* root = PresetRoot(document, preset);
    if (root == nullptr)
        return false;
    if (compressor == nullptr)
        return true;
    for (TiXmlElement* element = FirstChildIfElement(root->FirstChild("VideoCompressor")); element != nullptr;
         element = element->NextSiblingElement()) {
        if (element->ValueStr() == "StandardSettings")
            DeSerializeSettingArray(compressor->GetStandardSettings(), element);
        else if (element->ValueStr() == "NonStandardSettings")
            DeSerializeSettingArray(compressor->GetNonStandardSettings(), element);
    }
    return true;
}

void DeSerializeSettingArray(ISettingArray* settings, TiXmlElement* element)
{
    if (settings == nullptr || element == nullptr)
        return;
    for (TiXmlElement* child = FirstChildIfElement(element); child != nullptr; child = child->NextSiblingElement()) {
        const int32_t count = settings->GetCount();
        for (int32_t i = 0; i < count; ++i) {
            ISetting* setting = settings->GetSetting(i);
            if (setting != nullptr && SameName(setting->GetName(), child->ValueStr()))
                DeSerializeSetting(setting, child);
        }
    }
}

void DeSerializeSetting(ISetting* setting, TiXmlElement* element)
{
    if (setting == nullptr || element == nullptr)
        return;
    const char* type = element->Attribute("Type");
    if (type == nullptr)
        return;
    const std::string kind = type;
    if (kind == "eBool" || kind == "eEnum") {
        const char* value = element->Attribute("Value");
        if (value == nullptr)
            return;
        if (kind == "eBool")
            static_cast<IBoolSetting*>(setting)->SetValue(std::strcmp(value, "True") == 0);
        else
            static_cast<IEnumSetting*>(setting)->SetValue(value);
    } else if (kind == "eInt" || kind == "eUnsignedInt") {
        int value = 0;
        if (element->QueryIntAttribute("Value", &value) == TIXML_SUCCESS)
            static_cast<IIntSetting*>(setting)->SetValue(value);
    } else if (kind == "eDouble") {
        double value = 0;
        if (element->QueryDoubleAttribute("Value", &value) == TIXML_SUCCESS)
            static_cast<IDoubleSetting*>(setting)->SetValue(value);
    }
}
