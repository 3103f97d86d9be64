#include "service/PresetReader.h"

#include <cstring>
#include <tinyxml.h>

#include "service/PresetText.h"

namespace {

// The root element of a parsed preset, or null when it is not "Output" or the
// document nests deeper than the parser can safely follow. Other parse errors
// are not examined: whatever the parser built is used.
TiXmlElement* PresetRoot(TiXmlDocument& document, const std::string& preset)
{
    if (PresetNestingDepth(preset) > kPresetMaxDepth)
        return nullptr;
    const std::string text = PresetParserText(preset);
    document.Parse(text.c_str(), nullptr, TIXML_ENCODING_UTF8);
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

// Whether a preset kind reaches the same SetValue as a declared kind.
bool SameKind(const std::string& preset, const std::string& declared)
{
    const auto integer = [](const std::string& kind) { return kind == "eInt" || kind == "eUnsignedInt"; };
    return preset == declared || (integer(preset) && integer(declared));
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

bool ReadPresetSettings(const std::string& preset, unsigned int& manufacturer, unsigned int& codec,
                        std::vector<TPresetSetting>& settings)
{
    std::string text = preset;
    if (!DeSerializeVideoCodec4cc(text, manufacturer, codec))
        return false;
    TiXmlDocument document;
    TiXmlElement* root = PresetRoot(document, preset);
    for (TiXmlElement* array = FirstChildIfElement(root->FirstChild("VideoCompressor")); array != nullptr;
         array = array->NextSiblingElement()) {
        const bool standard = array->ValueStr() == "StandardSettings";
        if (!standard && array->ValueStr() != "NonStandardSettings")
            continue;
        for (TiXmlElement* child = FirstChildIfElement(array); child != nullptr; child = child->NextSiblingElement()) {
            const char* type = child->Attribute("Type");
            settings.push_back({standard, child->ValueStr(), type != nullptr ? type : ""});
        }
    }
    return true;
}

std::string FindKindMismatch(const std::vector<TPresetSetting>& settings, const EVCSettingInfo* declared,
                             size_t declaredCount)
{
    for (const TPresetSetting& setting : settings) {
        for (size_t i = 0; i < declaredCount; ++i) {
            const EVCSettingInfo& info = declared[i];
            if (info.name == nullptr || info.kind == nullptr || *info.kind == '\0' ||
                (info.standard != 0) != setting.standard || setting.name != info.name || setting.kind.empty())
                continue;
            if (!SameKind(setting.kind, info.kind))
                return "setting \"" + setting.name + "\" is given as " + setting.kind +
                       " but the compressor declares " + info.kind;
        }
    }
    return std::string();
}
