#include "velto/encoding/VeltoUploadEncodingShim.hpp"

#include <boost/json/value.hpp>

#include <array>
#include <charconv>
#include <cstring>

#include "encoding/JsonWriter.hpp"

namespace {

constexpr char kFile[] = "Networking/VeltoUploadEncodingShim";

VeltoData bytesOf(std::string_view text) {
  VeltoData bytes(text.size());
  if (!text.empty()) std::memcpy(bytes.data(), text.data(), text.size());
  return bytes;
}

// Bytes that pass a form unencoded: ASCII letters and digits and * - . _
constexpr std::array<bool, 256> kFormPassing = [] {
  std::array<bool, 256> passing{};
  for (int c = 'A'; c <= 'Z'; ++c) passing[static_cast<std::size_t>(c)] = true;
  for (int c = 'a'; c <= 'z'; ++c) passing[static_cast<std::size_t>(c)] = true;
  for (int c = '0'; c <= '9'; ++c) passing[static_cast<std::size_t>(c)] = true;
  for (char c : std::string_view("*-._")) passing[static_cast<unsigned char>(c)] = true;
  return passing;
}();

void appendFormEncoded(std::string& out, std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  for (char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (kFormPassing[byte]) {
      out.push_back(c);
    } else if (c == ' ') {
      out.push_back('+');
    } else {
      const char escape[3] = {'%', kHex[byte >> 4], kHex[byte & 0x0F]};
      out.append(escape, 3);
    }
  }
}

template <class Number>
void appendNumber(std::string& out, Number value) {
  char buffer[32];
  const auto end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
  out.append(buffer, end);
}

VeltoResult<VeltoData> notUtf8(VeltoCodeSite site) {
  return VeltoResult<VeltoData>::fromMessage("Upload text is not valid UTF-8", {}, nullptr, site);
}

// One `name=value` pair; false when a text is not UTF-8 (the caller fails).
bool appendPair(std::string& out, std::string_view name, const boost::json::value& value) {
  if (!velto::detail::isValidUtf8(name)) return false;
  if (!out.empty()) out.push_back('&');
  appendFormEncoded(out, name);
  out.push_back('=');
  switch (value.kind()) {
    case boost::json::kind::string: {
      const boost::json::string& text = value.get_string();
      if (!velto::detail::isValidUtf8(std::string_view(text.data(), text.size()))) return false;
      appendFormEncoded(out, std::string_view(text.data(), text.size()));
      break;
    }
    case boost::json::kind::bool_: out.append(value.get_bool() ? "true" : "false"); break;
    case boost::json::kind::int64: appendNumber(out, value.get_int64()); break;
    case boost::json::kind::uint64: appendNumber(out, value.get_uint64()); break;
    case boost::json::kind::double_: appendNumber(out, value.get_double()); break;
    default: break;  // null: an empty value
  }
  return true;
}

}  // namespace

VeltoResult<VeltoData> VeltoUploadEncodingShim::makeJsonData() const {
  VeltoEncodingDocument document;
  auto encoder = document.encoder();
  if (auto written = encode(encoder); !written) return VeltoResult<VeltoData>::failure(written.error());
  const std::string text = document.jsonText();
  if (!velto::detail::isValidUtf8(text)) {
    return notUtf8(VELTO_SITE(kFile, "makeJsonData()"));
  }
  return bytesOf(text);
}

VeltoResult<VeltoData> VeltoUploadEncodingShim::makeFormData() const {
  VeltoEncodingDocument document;
  auto encoder = document.encoder();
  if (auto written = encode(encoder); !written) return VeltoResult<VeltoData>::failure(written.error());
  const boost::json::value& tree = document.tree();
  if (!tree.is_object()) {
    return VeltoResult<VeltoData>::fromMessage("Form body needs a keyed container at the top level",
                                               {{"json", document.jsonText()}}, nullptr,
                                               VELTO_SITE(kFile, "makeFormData()"));
  }
  std::string form;
  for (const auto& entry : tree.get_object()) {
    const std::string_view name(entry.key().data(), entry.key().size());
    const boost::json::value& value = entry.value();
    bool nested = value.is_object();
    bool utf8 = true;
    if (value.is_array()) {
      for (const boost::json::value& element : value.get_array()) {
        if (element.is_structured()) {
          nested = true;
          break;
        }
        utf8 = utf8 && appendPair(form, name, element);
      }
    } else if (!nested) {
      utf8 = appendPair(form, name, value);
    }
    if (nested) {
      return VeltoResult<VeltoData>::fromMessage("Form body cannot hold nested containers", {{"key", std::string(name)}},
                                                 nullptr, VELTO_SITE(kFile, "makeFormData()"));
    }
    if (!utf8) return notUtf8(VELTO_SITE(kFile, "makeFormData()"));
  }
  return bytesOf(form);
}
