#include "MetadataEditor.h"

#include <algorithm>

#include "MetadataStore.h"

namespace ql::img {

namespace {

std::string upToNul(std::string_view s) {
    return std::string(s.substr(0, s.find('\0')));
}

bool isUtf8(std::string_view s) {
    for (size_t i = 0; i < s.size();) {
        const auto c = static_cast<unsigned char>(s[i]);
        if (c < 0x80) {
            ++i;
            continue;
        }
        size_t n = 0;
        char32_t cp = 0;
        if (c >= 0xC2 && c <= 0xDF)
            n = 1, cp = c & 0x1F;
        else if (c >= 0xE0 && c <= 0xEF)
            n = 2, cp = c & 0x0F;
        else if (c >= 0xF0 && c <= 0xF4)
            n = 3, cp = c & 0x07;
        else
            return false;
        if (i + n >= s.size()) return false;
        for (size_t k = 1; k <= n; ++k) {
            const auto t = static_cast<unsigned char>(s[i + k]);
            if ((t & 0xC0) != 0x80) return false;
            cp = cp << 6 | (t & 0x3F);
        }
        // Overlong forms, surrogates and code points past U+10FFFF.
        if ((n == 2 && cp < 0x800) || (n == 3 && cp < 0x10000) || cp > 0x10FFFF ||
            (cp >= 0xD800 && cp <= 0xDFFF))
            return false;
        i += n + 1;
    }
    return true;
}

// XML cannot carry other controls: the packet would be unreadable, or the XMP toolkit refuses it
// when the file is written and the whole packet is lost.
bool isXmlText(std::string_view s) {
    return isUtf8(s) && std::none_of(s.begin(), s.end(), [](char c) {
               return static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r';
           });
}

// At most n bytes, never splitting a character.
std::string cutUtf8(std::string s, size_t n) {
    if (s.size() <= n) return s;
    while (n > 0 && (static_cast<unsigned char>(s[n]) & 0xC0) == 0x80)
        --n;
    s.resize(n);
    return s;
}

// The largest size the IIM allows for a dataset; none for datasets Exiv2 does not list.
size_t iptcLimit(const Exiv2::IptcKey& key) {
    const Exiv2::DataSet* list = nullptr;
    if (key.record() == Exiv2::IptcDataSets::envelope)
        list = Exiv2::IptcDataSets::envelopeRecordList();
    else if (key.record() == Exiv2::IptcDataSets::application2)
        list = Exiv2::IptcDataSets::application2RecordList();
    for (; list && list->number_ != 0xffff; ++list)
        if (list->number_ == key.tag() && list->maxbytes_ > 0) return list->maxbytes_;
    return std::string::npos;
}

// "YYYYMMDD" or "YYYY-MM-DD". Exiv2 reads only the second form, and of the first only the year.
std::optional<Exiv2::DateValue::Date> parseDate(const std::string& s) {
    std::string digits = s;
    if (s.size() == 10 && s[4] == '-' && s[7] == '-')
        digits = s.substr(0, 4) + s.substr(5, 2) + s.substr(8, 2);
    if (digits.size() != 8 ||
        !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    Exiv2::DateValue::Date date;
    date.year = std::stoi(digits.substr(0, 4));
    date.month = std::stoi(digits.substr(4, 2));
    date.day = std::stoi(digits.substr(6, 2));
    if (date.month > 12 || date.day > 31) return std::nullopt;
    return date;
}

// The value of one IPTC entry, or nothing when the dataset's type cannot hold the text.
std::unique_ptr<Exiv2::Value> iptcValue(const Exiv2::IptcKey& key, const std::string& text) {
    const Exiv2::TypeId type = Exiv2::IptcDataSets::dataSetType(key.tag(), key.record());
    if (type == Exiv2::date) {
        const auto date = parseDate(text);
        if (!date) return nullptr;
        auto v = std::make_unique<Exiv2::DateValue>();
        v->setDate(*date);
        return v;
    }
    if (type == Exiv2::string)
        return std::make_unique<Exiv2::StringValue>(cutUtf8(text, iptcLimit(key)));
    std::unique_ptr<Exiv2::Value> v(Exiv2::Value::create(type).release());
    if (v->read(text) != 0) return nullptr;
    return v;
}

template <class Data>
void eraseKey(Data& data, const std::string& key) {
    for (auto it = data.begin(); it != data.end();)
        it = it->key() == key ? data.erase(it) : std::next(it);
}

// A struct field or array item of the XMP property `key`, at any depth.
bool isMemberOf(const std::string& k, const std::string& key) {
    return k.size() > key.size() && k.starts_with(key) &&
           (k[key.size()] == '/' || k[key.size()] == '[');
}

// An XMP property with its members.
void eraseXmpTree(Exiv2::XmpData& xmp, const std::string& key) {
    for (auto it = xmp.begin(); it != xmp.end();) {
        const std::string k = it->key();
        it = k == key || isMemberOf(k, key) ? xmp.erase(it) : std::next(it);
    }
}

bool hasMembers(const Exiv2::XmpData& xmp, const std::string& key) {
    return std::any_of(xmp.begin(), xmp.end(),
                       [&](const Exiv2::Xmpdatum& d) { return isMemberOf(d.key(), key); });
}

template <class Pred>
bool anyKey(const detail::MetadataStore& store, Pred pred) {
    try {
        const auto match = [&](const auto& d) { return pred(d.key()); };
        return std::any_of(store.exif.begin(), store.exif.end(), match) ||
               std::any_of(store.iptc.begin(), store.iptc.end(), match) ||
               std::any_of(store.xmp.begin(), store.xmp.end(), match);
    } catch (...) {
        return false;
    }
}

bool isStruct(const Exiv2::Value& v) {
    const auto* text = dynamic_cast<const Exiv2::XmpTextValue*>(&v);
    return text && text->xmpStruct() == Exiv2::XmpValue::xsStruct;
}

bool isXmpArray(Exiv2::TypeId t) {
    return t == Exiv2::xmpBag || t == Exiv2::xmpSeq || t == Exiv2::xmpAlt;
}

}  // namespace

MetadataEditor::MetadataEditor(const Metadata& source)
    : d_(std::make_unique<detail::MetadataStore>()) {
    detail::initExiv2();
    if (!source.d_) return;
    std::lock_guard lock(source.d_->mutex);
    try {
        d_->exif = source.d_->exif;
        d_->iptc = source.d_->iptc;
        d_->xmp = source.d_->xmp;
        d_->byteOrder = source.d_->byteOrder;
    } catch (...) {
        d_->exif.clear();
        d_->iptc.clear();
        d_->xmp.clear();
    }
}

MetadataEditor::~MetadataEditor() = default;

bool MetadataEditor::has(std::string_view key) const {
    return anyKey(*d_, [&](const std::string& k) { return k == key; });
}

bool MetadataEditor::hasAny(std::string_view prefix) const {
    return anyKey(*d_, [&](const std::string& k) { return k.starts_with(prefix); });
}

bool MetadataEditor::setText(std::string_view keyName, std::string_view utf8) {
    try {
        const std::string name(keyName);
        const std::string text = upToNul(utf8);
        if (name.starts_with("Exif.")) {
            const Exiv2::ExifKey key(name);
            if (text.empty()) {
                eraseKey(d_->exif, key.key());
                return true;
            }
            const std::unique_ptr<Exiv2::Value> v(
                Exiv2::Value::create(key.defaultTypeId()).release());
            if (v->read(text) != 0) return false;
            eraseKey(d_->exif, key.key());
            d_->exif.add(key, v.get());
            return true;
        }
        if (name.starts_with("Iptc.")) {
            const Exiv2::IptcKey key(name);
            if (text.empty()) {
                eraseKey(d_->iptc, key.key());
                return true;
            }
            if (!isUtf8(text)) return false;
            const auto v = iptcValue(key, text);
            if (!v) return false;
            eraseKey(d_->iptc, key.key());
            d_->iptc.add(key, v.get());
            return true;
        }
        if (name.starts_with("Xmp.")) {
            const Exiv2::XmpKey key(name);
            if (text.empty()) {
                eraseXmpTree(d_->xmp, name);
                return true;
            }
            if (!isXmlText(text)) return false;
            // A field or item needs its struct or array in place first.
            const size_t slash = name.find_last_of("/[");
            if (slash != std::string::npos && !has(name.substr(0, slash))) return false;
            const Exiv2::TypeId type = Exiv2::XmpProperties::propertyType(key);
            std::unique_ptr<Exiv2::Value> v;
            if (type == Exiv2::langAlt) {
                auto alt = std::make_unique<Exiv2::LangAltValue>();
                const auto old = d_->xmp.findKey(key);
                if (old != d_->xmp.end())
                    if (const auto* was = dynamic_cast<const Exiv2::LangAltValue*>(&old->value()))
                        alt->value_ = was->value_;
                alt->value_["x-default"] = text;
                v = std::move(alt);
            } else if (isXmpArray(type)) {
                auto array = std::make_unique<Exiv2::XmpArrayValue>(type);
                array->read(text);
                v = std::move(array);
            } else {
                // Set directly: read() would take a leading "type=" as an instruction.
                auto plain = std::make_unique<Exiv2::XmpTextValue>();
                plain->value_ = text;
                v = std::move(plain);
            }
            eraseXmpTree(d_->xmp, name);
            d_->xmp.add(key, v.get());
            return true;
        }
    } catch (...) {
    }
    return false;
}

bool MetadataEditor::setTexts(std::string_view keyName, const std::vector<std::string>& values) {
    try {
        const std::string name(keyName);
        std::vector<std::string> items;
        for (const auto& value : values)
            if (std::string item = upToNul(value); !item.empty()) items.push_back(std::move(item));
        const bool xmp = name.starts_with("Xmp.");
        for (const auto& item : items)
            if (!(xmp ? isXmlText(item) : isUtf8(item))) return false;
        if (name.starts_with("Iptc.")) {
            const Exiv2::IptcKey key(name);
            if (items.size() > 1 &&
                !Exiv2::IptcDataSets::dataSetRepeatable(key.tag(), key.record()))
                return false;
            std::vector<std::unique_ptr<Exiv2::Value>> entries;
            for (const auto& item : items) {
                entries.push_back(iptcValue(key, item));
                if (!entries.back()) return false;
            }
            eraseKey(d_->iptc, key.key());
            for (const auto& v : entries)
                d_->iptc.add(key, v.get());
            return true;
        }
        if (name.starts_with("Xmp.")) {
            const Exiv2::XmpKey key(name);
            const Exiv2::XmpPropertyInfo* info = Exiv2::XmpProperties::propertyInfo(key);
            const Exiv2::TypeId type = info ? info->typeId_ : Exiv2::xmpBag;
            if (!isXmpArray(type)) return false;
            Exiv2::XmpArrayValue array(type);
            for (const auto& item : items)
                array.read(item);  // appends one item
            eraseXmpTree(d_->xmp, name);
            if (!items.empty()) d_->xmp.add(key, &array);
            return true;
        }
    } catch (...) {
    }
    return false;
}

bool MetadataEditor::setStructField(std::string_view structKey, std::string_view fieldKey,
                                    std::string_view utf8) {
    try {
        const std::string name(structKey);
        const Exiv2::XmpKey key(name);
        const std::string field = name + "/" + std::string(fieldKey);
        const Exiv2::XmpKey checked(field);  // a field of an unknown namespace throws here
        // Exiv2 types known structs as text; anything else is no struct.
        const Exiv2::XmpPropertyInfo* info = Exiv2::XmpProperties::propertyInfo(key);
        if (info && info->typeId_ != Exiv2::xmpText) return false;
        const auto it = d_->xmp.findKey(key);
        const bool created = it == d_->xmp.end();
        if (created) {
            if (upToNul(utf8).empty()) return true;
            Exiv2::XmpTextValue parent;
            parent.setXmpStruct();
            d_->xmp.add(key, &parent);
        } else if (!isStruct(it->value())) {
            return false;
        }
        if (!setText(field, utf8)) {
            if (created) eraseXmpTree(d_->xmp, name);
            return false;
        }
        if (!hasMembers(d_->xmp, name)) eraseXmpTree(d_->xmp, name);
        return true;
    } catch (...) {
    }
    return false;
}

void MetadataEditor::remove(std::string_view keyName) {
    try {
        const std::string key(keyName);
        eraseKey(d_->exif, key);
        eraseKey(d_->iptc, key);
        eraseXmpTree(d_->xmp, key);
    } catch (...) {
    }
}

void MetadataEditor::removeIf(const std::function<bool(std::string_view key)>& drop) {
    try {
        const auto sweep = [&](auto& data) {
            for (auto it = data.begin(); it != data.end();)
                it = drop(it->key()) ? data.erase(it) : std::next(it);
        };
        sweep(d_->exif);
        sweep(d_->iptc);
        sweep(d_->xmp);
    } catch (...) {
    }
}

void MetadataEditor::removeSourceOnly() {
    try {
        for (auto it = d_->exif.begin(); it != d_->exif.end();)
            it = detail::keepForExport(*it) ? std::next(it) : d_->exif.erase(it);
        for (auto it = d_->xmp.begin(); it != d_->xmp.end();)
            it = detail::keepForExport(*it) ? std::next(it) : d_->xmp.erase(it);
    } catch (...) {
    }
}

Metadata MetadataEditor::result() const {
    try {
        auto store = std::make_shared<detail::MetadataStore>();
        store->exif = d_->exif;
        store->iptc = d_->iptc;
        store->xmp = d_->xmp;
        store->byteOrder = d_->byteOrder;
        if (store->empty()) return {};
        return Metadata(std::move(store));
    } catch (...) {
        return {};
    }
}

}  // namespace ql::img
