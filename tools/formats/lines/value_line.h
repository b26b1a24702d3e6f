// Text lines that are values: `--lines --as TYPE` orders them by what they mean.
//
//      0           u16        length of the value, where the type's values have one
//      +           valueMax   the value (host/values/value_text.h)
//      +           u8         1 when it is null
//      +           u16        length of the line
//      +           lineMax    the line, which travels along
//
// An empty line is null, unless the empty text is a value of the type. The longest value and the
// longest line of a data set decide the length of all its records.

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/request_builder.h"
#include "host/values/value_text.h"
#include "protocol/bytes.h"
#include "tools/files/input_file.h"
#include "tools/files/output_file.h"
#include "tools/formats/lines/line_input.h"
#include "tools/formats/record_field.h"
#include "tools/formats/record_flow.h"
#include "tools/formats/text_balance.h"
#include "tools/options/key_text.h"
#include "tools/options/mode_options.h"

namespace tvsort::tools {

struct ValueLineExtent {
    std::size_t valueBytesMax = 0;
    std::size_t lineBytesMax = 0;
};

class ValueLineRecord {
  public:
    // Values and lines up to this size; throws when records would have more than 65535 bytes.
    ValueLineRecord(const KeyText& type, const ValueLineExtent& extent);

    std::uint16_t recordLength() const { return recordLength_; }
    // Orders lines by their values.
    host::RequestBuilder request() const;

    std::vector<RecordField> fields() const;

    // Lays the line and its value to `target`. A line that is no value, and one beyond the extent,
    // is thrown as bad use.
    void encode(host::ValueEncoder& encoder, std::string_view line, Byte* target) const;
    // The line of a record that a process gave back, where it lies. A record without one is
    // kProtocolBroken.
    std::string_view lineOf(const Byte* record) const;

  private:
    KeyText type_;
    ValueLineExtent extent_;
    std::uint16_t nullOffset_;
    std::uint16_t recordLength_;
};

class ValueLineSource : public Operand {
  public:
    // Needs the input as long as it reads. A line that is no value is thrown as bad use when it is
    // read, with the input's name and the line's number. The balance is told of the lines that go.
    ValueLineSource(const KeyText& type, const ValueLineRecord& layout, InputFile& input,
                    std::shared_ptr<TextBalance> balance = std::make_shared<TextBalance>());

  private:
    std::size_t readRecords(Byte* target, std::size_t recordsMax) override;

    host::ValueEncoder encoder_;
    ValueLineRecord layout_;
    InputFile& input_;
    LineInput lines_;
    std::shared_ptr<TextBalance> balance_;
};

// Reads the input to its end and back to its start. The first line that is no value is thrown as
// bad use, with the input's name and its number.
ValueLineExtent measureValueLines(const KeyText& type, InputFile& input);

// The lines of the inputs, ordered as `--as` says. Inputs as for `lineRecords`.
RecordFlow valueLineRecords(const RecordOptions& options, const ModeOptions& mode,
                            std::vector<InputFile>& inputs, OutputFile& output);

}  // namespace tvsort::tools
