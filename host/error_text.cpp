#include "host/error_text.h"

#include <array>
#include <system_error>

#include "protocol/error_code.h"

namespace tvsort::host {

namespace {

struct CodeText {
    ErrorCode code;
    const char* text;
};

constexpr std::array kCodeTexts = {
    CodeText{ErrorCode::kSuccess, "the request was served"},
    CodeText{ErrorCode::kTooManyKeys,
             "the request has more than 100 key descriptors; sort by fewer keys"},
    CodeText{ErrorCode::kGeometryUnreadable,
             "a geometry key holds a value that is no well-known binary, or an envelope that is "
             "not 32 bytes long; check the key's offset and type, and the record's value"},
    CodeText{ErrorCode::kNotUnique,
             "two records agree on every key but the last, which the sort mode forbids; remove one "
             "of them or sort without the check for uniqueness"},
    CodeText{ErrorCode::kDecimalInvalid,
             "a decimal key holds a value that is no decimal; check the key's offset, and the "
             "record's value"},
    CodeText{ErrorCode::kWorkFileOpen,
             "the work file could not be opened; check that its directory exists and can be "
             "written"},
    CodeText{ErrorCode::kWorkFileRead,
             "reading the work file failed; check the disk of the temporary directory"},
    CodeText{ErrorCode::kWorkFileWrite,
             "writing the work file failed; make room in the temporary directory, choose another, "
             "or grant more memory"},
    CodeText{ErrorCode::kPartitionDepthNegative,
             "the sort lost count of its pending ranges; this is a fault of the process: keep the "
             "request and report it"},
    CodeText{ErrorCode::kPartitionStackFull,
             "the sort has more pending ranges than it can hold; this is a fault of the process: "
             "keep the request and report it"},
    CodeText{ErrorCode::kRequestContradictory,
             "the request contradicts itself or the memory granted; check record length, block "
             "size, record count, and that every key lies inside the record"},
    CodeText{ErrorCode::kTooManyOperands,
             "a group of equal records carries more than 64 operand tags; combine fewer operands "
             "at a time"},
    CodeText{ErrorCode::kKeyOrder,
             "the order numbers of the keys do not give each key a place of its own; number them "
             "from 1, each number once"},
    CodeText{ErrorCode::kNoFreeFrame,
             "every frame of the memory was in use at once; grant more memory or use smaller "
             "blocks"},
    CodeText{ErrorCode::kNoKeys, "the request has no key descriptor; name at least one key"},
    CodeText{ErrorCode::kValueTooLong,
             "a length-prefixed key value states more bytes than its field has; check the key's "
             "offset and length, and the record's value"},
    CodeText{ErrorCode::kHierarchyInvalid,
             "the levels of the hierarchy do not fit: each lies between 1 and 4095 and is at most "
             "one deeper than the record before; check the level field"},
};

// Null where the code is not known.
const char* textOf(std::uint32_t errorCode) {
    for (const CodeText& known : kCodeTexts) {
        if (static_cast<std::uint32_t>(known.code) == errorCode) return known.text;
    }
    return nullptr;
}

bool carriesSystemError(std::uint32_t errorCode) {
    return errorCode == static_cast<std::uint32_t>(ErrorCode::kWorkFileOpen) ||
           errorCode == static_cast<std::uint32_t>(ErrorCode::kWorkFileRead) ||
           errorCode == static_cast<std::uint32_t>(ErrorCode::kWorkFileWrite);
}

}  // namespace

bool isAnswerCode(std::uint32_t errorCode) {
    return textOf(errorCode) != nullptr;
}

std::string errorText(std::uint32_t errorCode) {
    const char* const text = textOf(errorCode);
    return text != nullptr ? text
                           : "an answer of this kind is not known; check that host and process are "
                             "of one version";
}

std::string describeAnswer(const SortReply& reply) {
    std::string text = "code " + std::to_string(reply.errorCode);
    if (carriesSystemError(reply.errorCode)) {
        text += " (" + std::generic_category().message(reply.osError) + ")";
    }
    return text + ": " + errorText(reply.errorCode);
}

}  // namespace tvsort::host
