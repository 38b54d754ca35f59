// Data reading of the RPly implementation.
//
// Each element is planned once: every property gets its decoder (type and
// byte order) and callback or store before the first instance is read. An
// element whose wanted values all go to stores is read in bulk
// (rply_bulk.cpp) as far as it can be, then on from where that stopped.
// Otherwise binary elements made of scalars only are read as fixed-size
// records straight out of the input window, a whole window of records at a
// time; everything else (ASCII, lists) goes value by value. Either way each
// callback runs once per value, as the interface requires.
#include "rply_ascii.h"
#include "rply_bulk.h"
#include "rply_internal.h"

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <new>

namespace {

using rply_detail::BulkResult;
using rply_detail::BulkSource;
using rply_detail::Canonical;
using rply_detail::Decode;
using rply_detail::Error;
using rply_detail::Input;
using rply_detail::kHostLittleEndian;
using rply_detail::kSwapped;
using rply_detail::ParseAscii;
using rply_detail::Step;
using rply_detail::StoreValue;
using rply_detail::TypeSize;

enum class Status { Ok, Reported, Bad };

class ElementReader {
public:
  ElementReader(p_ply ply, t_ply_element_& element) : ply_(ply), element_(element), input_(*ply->input) {
    const bool swap = ply->storage_mode != PLY_ASCII && (ply->storage_mode == PLY_LITTLE_ENDIAN) != kHostLittleEndian;
    ascii_ = ply->storage_mode == PLY_ASCII;
    fixedRecord_ = !ascii_;
    std::size_t offset = 0;
    for (const auto& property : element.properties) {
      Step step{};
      step.property = property.get();
      step.list = property->type == PLY_LIST;
      step.type = Canonical(step.list ? property->value_type : property->type);
      step.lengthType = Canonical(property->length_type);
      step.code = step.type + (swap ? kSwapped : 0);
      step.lengthCode = step.lengthType + (swap ? kSwapped : 0);
      step.size = TypeSize(step.type);
      step.lengthSize = TypeSize(step.lengthType);
      step.offset = offset;
      offset += step.size;
      if (step.list) {
        fixedRecord_ = false;
        anyList_ = true;
      }
      if (property->read_cb != nullptr) {
        anyCallback_ = true;
      }
      if (property->stored) {
        anyStore_ = true;
      }
      steps_.push_back(step);
    }
    recordSize_ = offset;
    if (recordSize_ == 0 || recordSize_ > rply_detail::kBlockSize / 2) {
      fixedRecord_ = false;
    }
  }

  bool Read() {
    t_ply_argument_& argument = ply_->argument;
    argument.element = &element_;
    if (steps_.empty()) {
      return true;
    }
    long start = 0;
    BulkSource source{};
    if (BulkReadable(source)) {
      const BulkResult bulk = ascii_ ? rply_detail::ReadLinesInBulk(source, steps_, element_.ninstances)
                                     : rply_detail::ReadRecordsInBulk(source, steps_, recordSize_,
                                                                      element_.ninstances);
      if (!input_.Seek(bulk.resume)) {
        ReportBad(steps_.front(), bulk.done);
        return false;
      }
      if (bulk.done == element_.ninstances) {
        return true;
      }
      start = bulk.done;
    }
    return fixedRecord_ ? ReadRecords(start) : ReadValues(start);
  }

private:
  void ReportBad(const Step& step, long instance) {
    Error(ply_, "Error reading '%s' of '%s' number %ld", step.property->name.c_str(), element_.name.c_str(), instance);
  }

  // Bulk reading needs stores only (callbacks impose their order), a file it
  // can read at any offset, and records it can take whole.
  bool BulkReadable(BulkSource& source) const {
    if (!anyStore_ || anyCallback_ || anyList_ || !input_.RegularSize(source.fileSize)) {
      return false;
    }
    if (!ascii_ && (recordSize_ == 0 || recordSize_ > rply_detail::kBulkMaxRecord)) {
      return false;
    }
    source.descriptor = input_.Descriptor();
    source.offset = input_.Offset();
    source.threads = ply_->threads;
    source.minBytesPerThread = ply_->min_bytes_per_thread;
    return true;
  }

  // One wanted value: to its store or its callback.
  bool Deliver(const Step& step, long instance, double value) {
    if (step.property->stored) {
      StoreValue(*step.property, instance, value);
      return true;
    }
    ply_->argument.value = value;
    return Call(step);
  }

  bool Call(const Step& step) {
    t_ply_argument_& argument = ply_->argument;
    argument.property = step.property;
    argument.pdata = step.property->pdata;
    argument.idata = step.property->idata;
    if (step.property->read_cb(&argument) == 0) {
      Error(ply_, "Aborted by user");
      return false;
    }
    return true;
  }

  // Fixed-size binary records from instance `instance` on: decode straight
  // from the input window.
  bool ReadRecords(long instance) {
    std::vector<const Step*> active;
    for (const Step& step : steps_) {
      if (step.property->read_cb != nullptr || step.property->stored) {
        active.push_back(&step);
      }
    }
    t_ply_argument_& argument = ply_->argument;
    argument.length = 1;
    argument.value_index = 0;
    const long count = element_.ninstances;
    while (instance < count) {
      if (input_.Available() < recordSize_ && !input_.Ensure(recordSize_)) {
        const std::size_t available = input_.Available();
        for (const Step& step : steps_) {
          if (step.offset + step.size > available) {
            ReportBad(step, instance);
            break;
          }
        }
        return false;
      }
      const long batch =
          std::min<long>(count - instance, static_cast<long>(input_.Available() / recordSize_));
      const char* record = input_.Data();
      for (long k = 0; k < batch; ++k, record += recordSize_) {
        argument.instance_index = instance + k;
        for (const Step* step : active) {
          if (!Deliver(*step, instance + k, Decode(step->code, record + step->offset))) {
            return false;
          }
        }
      }
      input_.Skip(static_cast<std::size_t>(batch) * recordSize_);
      instance += batch;
    }
    return true;
  }

  // One value of a scalar type; `wanted` false skips the conversion.
  Status ReadScalar(e_ply_type type, int code, std::size_t size, bool wanted, double& value) {
    if (!ascii_) {
      if (!input_.Ensure(size)) {
        return Status::Bad;
      }
      if (wanted) {
        value = Decode(code, input_.Data());
      }
      input_.Skip(size);
      return Status::Ok;
    }
    std::string_view token;
    switch (input_.NextToken(token)) {
      case Input::TokenResult::Ok:
        break;
      case Input::TokenResult::TooLarge:
        Error(ply_, "Token too large");
        return Status::Reported;
      case Input::TokenResult::EndOfFile:
        Error(ply_, "Unexpected end of file");
        return Status::Reported;
    }
    if (!wanted) {
      return Status::Ok;
    }
    return ParseAscii(token, type, value) ? Status::Ok : Status::Bad;
  }

  bool Finish(Status status, const Step& step, long instance) {
    if (status == Status::Bad) {
      ReportBad(step, instance);
    }
    return status == Status::Ok;
  }

  // ASCII, lists, or records too large for the window, from instance
  // `first` on: value by value.
  bool ReadValues(long first) {
    t_ply_argument_& argument = ply_->argument;
    const long count = element_.ninstances;
    for (long instance = first; instance < count; ++instance) {
      argument.instance_index = instance;
      for (const Step& step : steps_) {
        const bool wanted = step.property->read_cb != nullptr || step.property->stored;
        double value = 0.0;
        if (!step.list) {
          const Status status = ReadScalar(step.type, step.code, step.size, wanted, value);
          if (status != Status::Ok) {
            return Finish(status, step, instance);
          }
          if (wanted) {
            argument.length = 1;
            argument.value_index = 0;
            if (!Deliver(step, instance, value)) {
              return false;
            }
          }
          continue;
        }
        double length = 0.0;
        Status status = ReadScalar(step.lengthType, step.lengthCode, step.lengthSize, true, length);
        if (status == Status::Ok && !(length >= 0.0 && length <= static_cast<double>(LONG_MAX / 2) &&
                                      std::floor(length) == length)) {
          status = Status::Bad;
        }
        if (status != Status::Ok) {
          return Finish(status, step, instance);
        }
        const long n = static_cast<long>(length);
        if (wanted) {
          argument.length = n;
          argument.value_index = -1;
          argument.value = length;
          if (!Call(step)) {
            return false;
          }
        }
        for (long j = 0; j < n; ++j) {
          status = ReadScalar(step.type, step.code, step.size, wanted, value);
          if (status != Status::Ok) {
            return Finish(status, step, instance);
          }
          if (wanted) {
            argument.length = n;
            argument.value_index = j;
            argument.value = value;
            if (!Call(step)) {
              return false;
            }
          }
        }
      }
    }
    return true;
  }

  p_ply ply_;
  t_ply_element_& element_;
  Input& input_;
  std::vector<Step> steps_;
  std::size_t recordSize_ = 0;
  bool ascii_ = false;
  bool fixedRecord_ = false;
  bool anyList_ = false;
  bool anyCallback_ = false;
  bool anyStore_ = false;
};

}  // namespace

extern "C" int ply_read(p_ply ply) {
  if (ply == nullptr || !ply->header_read) {
    return 0;
  }
  try {
    for (t_ply_element_& element : ply->elements) {
      ElementReader reader(ply, element);
      if (!reader.Read()) {
        return 0;
      }
    }
  } catch (const std::bad_alloc&) {
    Error(ply, "Out of memory");
    return 0;
  }
  return 1;
}
