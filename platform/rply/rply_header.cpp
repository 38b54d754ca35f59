// Opening, header parsing and header queries of the RPly implementation.
#include "rply_bulk.h"
#include "rply_internal.h"

#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

namespace rply_detail {

namespace {

void DefaultErrorCallback(p_ply, const char* message) { std::fprintf(stderr, "RPly: %s\n", message); }

struct NamedType {
  const char* name;
  e_ply_type type;
};

// The PLY type words and RPly's type values for them.
constexpr NamedType kTypeNames[] = {
    {"int8", PLY_INT8},     {"uint8", PLY_UINT8},     {"int16", PLY_INT16}, {"uint16", PLY_UINT16},
    {"int32", PLY_INT32},   {"uint32", PLY_UIN32},    {"float32", PLY_FLOAT32}, {"float64", PLY_FLOAT64},
    {"char", PLY_CHAR},     {"uchar", PLY_UCHAR},     {"short", PLY_SHORT}, {"ushort", PLY_USHORT},
    {"int", PLY_INT},       {"uint", PLY_UINT},       {"float", PLY_FLOAT}, {"double", PLY_DOUBLE},
};

bool FindType(std::string_view word, e_ply_type& type) {
  for (const NamedType& entry : kTypeNames) {
    if (word == entry.name) {
      type = entry.type;
      return true;
    }
  }
  return false;
}

// Header words are short-lived views into the input window; the parser keeps
// the current one as a string.
class HeaderParser {
public:
  explicit HeaderParser(p_ply ply) : ply_(ply), input_(*ply->input) {}

  bool Parse();

private:
  bool NextWord();
  bool ParseFormat();
  bool ParseElement();
  bool ParseProperty(t_ply_element_& element);
  bool ParseLine(TextList& target);

  p_ply ply_;
  Input& input_;
  std::string word_;
  char separator_ = '\0';
};

bool HeaderParser::NextWord() {
  std::string_view token;
  switch (input_.NextToken(token, &separator_)) {
    case Input::TokenResult::Ok:
      // Callers see names as C strings, so a word ends at a zero byte: the
      // name that ply_get_property_info hands out is then the very name that
      // ply_set_read_cb matches.
      word_.assign(token.data(), ::strnlen(token.data(), token.size()));
      return true;
    case Input::TokenResult::TooLarge:
      Error(ply_, "Token too large");
      return false;
    case Input::TokenResult::EndOfFile:
      break;
  }
  Error(ply_, "Unexpected end of file");
  return false;
}

bool HeaderParser::ParseFormat() {
  if (word_ != "format") {
    return false;
  }
  std::string_view token;
  if (input_.NextToken(token) != Input::TokenResult::Ok) {
    return false;
  }
  if (token == "ascii") {
    ply_->storage_mode = PLY_ASCII;
  } else if (token == "binary_little_endian") {
    ply_->storage_mode = PLY_LITTLE_ENDIAN;
  } else if (token == "binary_big_endian") {
    ply_->storage_mode = PLY_BIG_ENDIAN;
  } else {
    return false;
  }
  if (input_.NextToken(token) != Input::TokenResult::Ok || token != "1.0") {
    return false;
  }
  return true;
}

bool HeaderParser::ParseLine(TextList& target) {
  std::string line;
  switch (input_.NextLine(line)) {
    case Input::LineResult::Ok:
      target.Add(std::move(line));
      return NextWord();
    case Input::LineResult::TooLong:
      Error(ply_, "Line too long");
      return false;
    case Input::LineResult::EndOfFile:
      break;
  }
  Error(ply_, "Unexpected end of file");
  return false;
}

bool HeaderParser::ParseProperty(t_ply_element_& element) {
  auto property = std::make_unique<t_ply_property_>();
  if (!NextWord()) {
    return false;
  }
  if (word_ == "list") {
    property->type = PLY_LIST;
    if (!NextWord()) {
      return false;
    }
    if (!FindType(word_, property->length_type)) {
      Error(ply_, "Unexpected token '%s'", word_.c_str());
      return false;
    }
    if (!NextWord()) {
      return false;
    }
    if (!FindType(word_, property->value_type)) {
      Error(ply_, "Unexpected token '%s'", word_.c_str());
      return false;
    }
  } else if (!FindType(word_, property->type)) {
    Error(ply_, "Unexpected token '%s'", word_.c_str());
    return false;
  }
  if (!NextWord()) {
    return false;
  }
  if (word_.size() >= kWordSize) {
    Error(ply_, "Word too long");
    return false;
  }
  property->name = word_;
  property->index = element.properties.size();
  element.properties.push_back(std::move(property));
  return NextWord();
}

bool HeaderParser::ParseElement() {
  t_ply_element_ element;
  if (!NextWord()) {
    return false;
  }
  if (word_.size() >= kWordSize) {
    Error(ply_, "Word too long");
    return false;
  }
  element.name = word_;
  if (!NextWord()) {
    return false;
  }
  long count = 0;
  const char* first = word_.data();
  const char* last = first + word_.size();
  const auto [end, error] = std::from_chars(first, last, count);
  if (error != std::errc() || end != last || count < 0) {
    Error(ply_, "Expected number got '%s'", word_.c_str());
    return false;
  }
  element.ninstances = count;
  if (!NextWord()) {
    return false;
  }
  element.index = ply_->elements.size();
  ply_->elements.push_back(std::move(element));
  t_ply_element_& added = ply_->elements.back();
  while (word_ == "property") {
    if (!ParseProperty(added)) {
      return false;
    }
  }
  return true;
}

bool HeaderParser::Parse() {
  input_.Ensure(5);  // a shorter file fails the checks below
  const char* magic = input_.Data();
  if (input_.Available() < 4 || magic[0] != 'p' || magic[1] != 'l' || magic[2] != 'y' || !IsSpace(magic[3])) {
    Error(ply_, "Wrong magic number. Expected 'ply'");
    return false;
  }
  ply_->crlf = input_.Available() >= 5 && magic[3] == '\r' && magic[4] == '\n';
  input_.Skip(3);
  if (!NextWord()) {
    return false;
  }
  if (!ParseFormat()) {
    Error(ply_, "Invalid file format");
    return false;
  }
  if (!NextWord()) {
    return false;
  }
  while (word_ != "end_header") {
    bool ok = false;
    if (word_ == "comment") {
      ok = ParseLine(ply_->comments);
    } else if (word_ == "obj_info") {
      ok = ParseLine(ply_->obj_infos);
    } else if (word_ == "element") {
      ok = ParseElement();
    } else {
      Error(ply_, "Unexpected token '%s'", word_.c_str());
      return false;
    }
    if (!ok) {
      return false;
    }
  }
  // The word read consumed the "\n" (or the "\r" of a "\r\n") after
  // "end_header"; files whose magic line ends in "\r\n" have one more byte.
  if (ply_->crlf && separator_ == '\r' && input_.Ensure(1)) {
    input_.Skip(1);
  }
  return true;
}

}  // namespace

void TextList::Add(std::string text) { texts_.push_back(std::move(text)); }

const char* TextList::Next(const char* last) const {
  std::size_t next = 0;
  if (last != nullptr) {
    if (last_ < texts_.size() && texts_[last_].c_str() == last) {
      next = last_ + 1;
    } else {
      if (positions_.empty()) {
        positions_.reserve(texts_.size());
        for (std::size_t i = 0; i < texts_.size(); ++i) positions_.emplace(texts_[i].c_str(), i);
      }
      const auto found = positions_.find(last);
      if (found == positions_.end()) {
        return nullptr;
      }
      next = found->second + 1;
    }
  }
  if (next >= texts_.size()) {
    return nullptr;
  }
  last_ = next;
  return texts_[next].c_str();
}

void Error(p_ply ply, const char* format, ...) {
  char message[1024];
  va_list args;
  va_start(args, format);
  std::vsnprintf(message, sizeof(message), format, args);
  va_end(args);
  p_ply_error_cb callback = ply != nullptr && ply->error_cb != nullptr ? ply->error_cb : DefaultErrorCallback;
  callback(ply, message);
}

std::size_t TypeSize(e_ply_type type) {
  switch (Canonical(type)) {
    case PLY_INT8:
    case PLY_UINT8:
      return 1;
    case PLY_INT16:
    case PLY_UINT16:
      return 2;
    case PLY_INT32:
    case PLY_UIN32:
    case PLY_FLOAT32:
      return 4;
    case PLY_FLOAT64:
      return 8;
    default:
      return 0;
  }
}

e_ply_type Canonical(e_ply_type type) {
  if (type >= PLY_CHAR && type <= PLY_DOUBLE) {
    return static_cast<e_ply_type>(type - PLY_CHAR);
  }
  return type;
}

}  // namespace rply_detail

using rply_detail::NameIndex;

namespace {

// The property after `last` (the first for NULL), found through the position
// `last` carries; NULL after the last one or for one of another element.
p_ply_property NextProperty(const t_ply_element_& element, const t_ply_property_* last) {
  const auto& items = element.properties;
  if (last == nullptr) {
    return items.empty() ? nullptr : items.front().get();
  }
  const std::size_t at = last->index;
  if (at + 1 >= items.size() || items[at].get() != last) {
    return nullptr;
  }
  return items[at + 1].get();
}

p_ply_element NextElement(t_ply_& ply, const t_ply_element_* last) {
  auto& items = ply.elements;
  if (last == nullptr) {
    return items.empty() ? nullptr : &items.front();
  }
  const std::size_t at = last->index;
  if (at + 1 >= items.size() || &items[at] != last) {
    return nullptr;
  }
  return &items[at + 1];
}

}  // namespace

namespace {

// The first property of `element` named `name`: a scan for the few
// properties elements usually have, an index built on first need for many.
t_ply_property_* FirstProperty(const t_ply_element_& element, std::string_view name) {
  constexpr std::size_t kScanned = 32;
  const auto& properties = element.properties;
  if (properties.size() <= kScanned) {
    for (const auto& property : properties) {
      if (property->name == name) return property.get();
    }
    return nullptr;
  }
  const auto nameOf = [&properties](std::size_t i) { return std::string_view(properties[i]->name); };
  if (!element.property_index) {
    element.property_index = std::make_unique<NameIndex>();
    element.property_index->Build(properties.size(), nameOf);
  }
  const std::size_t found = element.property_index->Find(name, nameOf);
  return found == NameIndex::kNone ? nullptr : properties[found].get();
}

// The property that registrations reach: the first of its name in the first
// element of its name.
t_ply_property_* FindProperty(p_ply ply, const char* element_name, const char* property_name,
                              t_ply_element_*& element) {
  if (ply == nullptr || element_name == nullptr || property_name == nullptr) {
    return nullptr;
  }
  const auto& elements = ply->elements;
  const auto nameOf = [&elements](std::size_t i) { return std::string_view(elements[i].name); };
  if (!ply->element_index.Built()) {
    ply->element_index.Build(elements.size(), nameOf);
  }
  const std::size_t found = ply->element_index.Find(element_name, nameOf);
  if (found == NameIndex::kNone) {
    return nullptr;
  }
  element = &ply->elements[found];
  return FirstProperty(*element, property_name);
}

}  // namespace

using rply_detail::Error;

extern "C" {

p_ply ply_open(const char* name, p_ply_error_cb error_cb, long idata, void* pdata) {
  std::FILE* file = name != nullptr ? std::fopen(name, "rb") : nullptr;
  if (file == nullptr) {
    t_ply_ reporter;  // carries the callback and user data for the message
    reporter.error_cb = error_cb;
    reporter.idata = idata;
    reporter.pdata = pdata;
    Error(&reporter, "Unable to open file");
    return nullptr;
  }
  p_ply ply = new (std::nothrow) t_ply_;
  if (ply == nullptr) {
    std::fclose(file);
    t_ply_ reporter;
    reporter.error_cb = error_cb;
    reporter.idata = idata;
    reporter.pdata = pdata;
    Error(&reporter, "Out of memory");
    return nullptr;
  }
  ply->file = file;
  ply->error_cb = error_cb;
  ply->idata = idata;
  ply->pdata = pdata;
  try {
    ply->input = std::make_unique<rply_detail::Input>(file);
  } catch (const std::bad_alloc&) {
    Error(ply, "Out of memory");
    ply_close(ply);
    return nullptr;
  }
  return ply;
}

int ply_get_ply_user_data(p_ply ply, void** pdata, long* idata) {
  if (ply == nullptr) {
    return 0;
  }
  if (pdata != nullptr) *pdata = ply->pdata;
  if (idata != nullptr) *idata = ply->idata;
  return 1;
}

int ply_read_header(p_ply ply) {
  if (ply == nullptr || ply->header_read) {
    return 0;
  }
  try {
    rply_detail::HeaderParser parser(ply);
    if (!parser.Parse()) {
      return 0;
    }
  } catch (const std::bad_alloc&) {
    Error(ply, "Out of memory");
    return 0;
  }
  ply->header_read = true;
  return 1;
}

const char* ply_get_next_comment(p_ply ply, const char* last) {
  return ply != nullptr ? ply->comments.Next(last) : nullptr;
}

const char* ply_get_next_obj_info(p_ply ply, const char* last) {
  return ply != nullptr ? ply->obj_infos.Next(last) : nullptr;
}

p_ply_element ply_get_next_element(p_ply ply, p_ply_element last) {
  return ply != nullptr ? NextElement(*ply, last) : nullptr;
}

p_ply_property ply_get_next_property(p_ply_element element, p_ply_property last) {
  return element != nullptr ? NextProperty(*element, last) : nullptr;
}

int ply_get_element_info(p_ply_element element, const char** name, long* ninstances) {
  if (element == nullptr) {
    return 0;
  }
  if (name != nullptr) *name = element->name.c_str();
  if (ninstances != nullptr) *ninstances = element->ninstances;
  return 1;
}

int ply_get_property_info(p_ply_property property, const char** name, e_ply_type* type, e_ply_type* length_type,
                          e_ply_type* value_type) {
  if (property == nullptr) {
    return 0;
  }
  if (name != nullptr) *name = property->name.c_str();
  if (type != nullptr) *type = property->type;
  if (length_type != nullptr) *length_type = property->length_type;
  if (value_type != nullptr) *value_type = property->value_type;
  return 1;
}

long ply_set_read_cb(p_ply ply, const char* element_name, const char* property_name, p_ply_read_cb read_cb,
                     void* pdata, long idata) {
  t_ply_element_* element = nullptr;
  t_ply_property_* property = FindProperty(ply, element_name, property_name, element);
  if (property == nullptr) {
    return 0;
  }
  property->read_cb = read_cb;
  property->pdata = pdata;
  property->idata = idata;
  property->stored = false;
  return element->ninstances;
}

long ply_set_read_store(p_ply ply, const char* element_name, const char* property_name, e_ply_store_type type,
                        void* base, size_t stride, long count) {
  if (base == nullptr || count < 0 || (type != PLY_STORE_FLOAT32 && type != PLY_STORE_UINT8_LOW)) {
    return 0;
  }
  t_ply_element_* element = nullptr;
  t_ply_property_* property = FindProperty(ply, element_name, property_name, element);
  if (property == nullptr || property->type == PLY_LIST) {
    return 0;
  }
  property->read_cb = nullptr;
  property->stored = true;
  property->store_type = type;
  property->store_base = static_cast<char*>(base);
  property->store_stride = stride;
  property->store_count = count;
  return element->ninstances;
}

int ply_set_read_threads(p_ply ply, unsigned threads, size_t min_bytes) {
  if (ply == nullptr) {
    return 0;
  }
  ply->threads = threads;
  ply->min_bytes_per_thread = min_bytes;
  return 1;
}

unsigned ply_get_read_threads(p_ply ply) { return ply != nullptr ? rply_detail::BulkThreads(ply->threads) : 0; }

int ply_close(p_ply ply) {
  if (ply == nullptr) {
    return 0;
  }
  ply->input.reset();
  const bool closed = ply->file == nullptr || std::fclose(ply->file) == 0;
  delete ply;
  return closed ? 1 : 0;
}

int ply_get_argument_element(p_ply_argument argument, p_ply_element* element, long* instance_index) {
  if (argument == nullptr) {
    return 0;
  }
  if (element != nullptr) *element = argument->element;
  if (instance_index != nullptr) *instance_index = argument->instance_index;
  return 1;
}

int ply_get_argument_property(p_ply_argument argument, p_ply_property* property, long* length, long* value_index) {
  if (argument == nullptr) {
    return 0;
  }
  if (property != nullptr) *property = argument->property;
  if (length != nullptr) *length = argument->length;
  if (value_index != nullptr) *value_index = argument->value_index;
  return 1;
}

int ply_get_argument_user_data(p_ply_argument argument, void** pdata, long* idata) {
  if (argument == nullptr) {
    return 0;
  }
  if (pdata != nullptr) *pdata = argument->pdata;
  if (idata != nullptr) *idata = argument->idata;
  return 1;
}

double ply_get_argument_value(p_ply_argument argument) { return argument != nullptr ? argument->value : 0.0; }

}  // extern "C"
