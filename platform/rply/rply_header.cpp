// Opening, header parsing and header queries of the RPly implementation.
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
  bool ParseLine(std::deque<std::string>& target);

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

bool HeaderParser::ParseLine(std::deque<std::string>& target) {
  std::string line;
  switch (input_.NextLine(line)) {
    case Input::LineResult::Ok:
      target.push_back(std::move(line));
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
  element.properties.push_back(std::move(property));
  return NextWord();
}

bool HeaderParser::ParseElement() {
  auto element = std::make_unique<t_ply_element_>();
  if (!NextWord()) {
    return false;
  }
  if (word_.size() >= kWordSize) {
    Error(ply_, "Word too long");
    return false;
  }
  element->name = word_;
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
  element->ninstances = count;
  if (!NextWord()) {
    return false;
  }
  t_ply_element_& added = *element;
  ply_->elements.push_back(std::move(element));
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

namespace {

const char* NextString(const std::deque<std::string>& list, const char* last) {
  if (last == nullptr) {
    return list.empty() ? nullptr : list.front().c_str();
  }
  for (std::size_t i = 0; i + 1 < list.size(); ++i) {
    if (list[i].c_str() == last) {
      return list[i + 1].c_str();
    }
  }
  return nullptr;
}

}  // namespace

const char* ply_get_next_comment(p_ply ply, const char* last) {
  return ply != nullptr ? NextString(ply->comments, last) : nullptr;
}

const char* ply_get_next_obj_info(p_ply ply, const char* last) {
  return ply != nullptr ? NextString(ply->obj_infos, last) : nullptr;
}

p_ply_element ply_get_next_element(p_ply ply, p_ply_element last) {
  if (ply == nullptr || ply->elements.empty()) {
    return nullptr;
  }
  if (last == nullptr) {
    return ply->elements.front().get();
  }
  for (std::size_t i = 0; i + 1 < ply->elements.size(); ++i) {
    if (ply->elements[i].get() == last) {
      return ply->elements[i + 1].get();
    }
  }
  return nullptr;
}

p_ply_property ply_get_next_property(p_ply_element element, p_ply_property last) {
  if (element == nullptr || element->properties.empty()) {
    return nullptr;
  }
  if (last == nullptr) {
    return element->properties.front().get();
  }
  for (std::size_t i = 0; i + 1 < element->properties.size(); ++i) {
    if (element->properties[i].get() == last) {
      return element->properties[i + 1].get();
    }
  }
  return nullptr;
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
  if (ply == nullptr || element_name == nullptr || property_name == nullptr) {
    return 0;
  }
  for (const auto& element : ply->elements) {
    if (element->name != element_name) {
      continue;
    }
    for (const auto& property : element->properties) {
      if (property->name == property_name) {
        property->read_cb = read_cb;
        property->pdata = pdata;
        property->idata = idata;
        return element->ninstances;
      }
    }
    return 0;
  }
  return 0;
}

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
