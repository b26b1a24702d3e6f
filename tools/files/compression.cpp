#include "tools/files/compression.h"

#include <zlib.h>
#include <zstd.h>

#include <algorithm>
#include <new>
#include <vector>

#include "host/host_error.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kPieceBytes = std::size_t{128} * 1024;
// What makes zlib read and write gzip's header, with the largest window.
constexpr int kGzipWindow = 15 + 16;

[[noreturn]] void refuse(const InputFile& input, const char* what) {
    throw host::badUse(input.displayName() + " " + what +
                       "; get it once more, or unpack it to see how far it goes");
}

void unpackGzip(InputFile& input, SpoolFile& target, Progress& progress) {
    z_stream stream = {};
    if (inflateInit2(&stream, kGzipWindow) != Z_OK) throw std::bad_alloc();
    const std::unique_ptr<z_stream, void (*)(z_stream*)> end(
        &stream, [](z_stream* ended) { inflateEnd(ended); });
    std::vector<Byte> packed(kPieceBytes);
    std::vector<Byte> plain(kPieceBytes);
    int status = Z_STREAM_END;
    while (const std::size_t read = input.read(packed.data(), packed.size())) {
        progress.advanceBytes(read);
        stream.next_in = packed.data();
        stream.avail_in = static_cast<uInt>(read);
        do {
            // Another part stands behind the one that has ended.
            if (status == Z_STREAM_END) inflateReset(&stream);
            stream.next_out = plain.data();
            stream.avail_out = static_cast<uInt>(plain.size());
            status = inflate(&stream, Z_NO_FLUSH);
            if (status != Z_OK && status != Z_STREAM_END && status != Z_BUF_ERROR)
                refuse(input, "is damaged: it cannot be unpacked as gzip");
            target.write(plain.data(), plain.size() - stream.avail_out);
            // Behind an end that fills the room exactly there is nothing more to ask for.
        } while (stream.avail_in > 0 || (stream.avail_out == 0 && status != Z_STREAM_END));
    }
    if (status != Z_STREAM_END) refuse(input, "is cut short: its gzip data have no end");
}

void unpackZstd(InputFile& input, SpoolFile& target, Progress& progress) {
    const std::unique_ptr<ZSTD_DStream, std::size_t (*)(ZSTD_DStream*)> stream(ZSTD_createDStream(),
                                                                               ZSTD_freeDStream);
    if (stream == nullptr) throw std::bad_alloc();
    std::vector<Byte> packed(kPieceBytes);
    std::vector<Byte> plain(kPieceBytes);
    std::size_t wanted = 0;
    while (const std::size_t read = input.read(packed.data(), packed.size())) {
        progress.advanceBytes(read);
        ZSTD_inBuffer from = {packed.data(), read, 0};
        for (bool isFull = false; from.pos < from.size || isFull;) {
            ZSTD_outBuffer to = {plain.data(), plain.size(), 0};
            wanted = ZSTD_decompressStream(stream.get(), &to, &from);
            if (ZSTD_isError(wanted) != 0)
                refuse(input, "is damaged: it cannot be unpacked as zstd");
            target.write(plain.data(), to.pos);
            // A frame whose end fills the room exactly has nothing behind it.
            isFull = to.pos == to.size && wanted != 0;
        }
    }
    if (wanted != 0) refuse(input, "is cut short: its zstd data have no end");
}

class GzipPacker : public Packer {
  public:
    GzipPacker() {
        constexpr int kMemoryLevel = 8;
        if (deflateInit2(&stream_, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kGzipWindow, kMemoryLevel,
                         Z_DEFAULT_STRATEGY) != Z_OK) {
            throw std::bad_alloc();
        }
    }
    ~GzipPacker() override { deflateEnd(&stream_); }
    GzipPacker(const GzipPacker&) = delete;
    GzipPacker& operator=(const GzipPacker&) = delete;

    void write(const Byte* bytes, std::size_t byteCount, const Sink& sink) override {
        while (byteCount > 0) {
            const std::size_t piece = std::min(byteCount, kPieceBytes);
            pack(bytes, piece, Z_NO_FLUSH, sink);
            bytes += piece;
            byteCount -= piece;
        }
    }
    void finish(const Sink& sink) override { pack(nullptr, 0, Z_FINISH, sink); }

  private:
    void pack(const Byte* bytes, std::size_t byteCount, int flush, const Sink& sink) {
        // The interface is older than const; nothing is written there.
        stream_.next_in = const_cast<Byte*>(bytes);
        stream_.avail_in = static_cast<uInt>(byteCount);
        do {
            stream_.next_out = packed_.data();
            stream_.avail_out = static_cast<uInt>(packed_.size());
            deflate(&stream_, flush);
            sink(packed_.data(), packed_.size() - stream_.avail_out);
        } while (stream_.avail_out == 0);
    }

    z_stream stream_ = {};
    std::vector<Byte> packed_ = std::vector<Byte>(kPieceBytes);
};

class ZstdPacker : public Packer {
  public:
    ZstdPacker() : stream_(ZSTD_createCCtx(), ZSTD_freeCCtx) {
        if (stream_ == nullptr) throw std::bad_alloc();
    }
    void write(const Byte* bytes, std::size_t byteCount, const Sink& sink) override {
        pack({bytes, byteCount, 0}, ZSTD_e_continue, sink);
    }
    void finish(const Sink& sink) override { pack({nullptr, 0, 0}, ZSTD_e_end, sink); }

  private:
    void pack(ZSTD_inBuffer from, ZSTD_EndDirective directive, const Sink& sink) {
        for (std::size_t left = 1; from.pos < from.size || (directive == ZSTD_e_end && left > 0);) {
            ZSTD_outBuffer to = {packed_.data(), packed_.size(), 0};
            left = ZSTD_compressStream2(stream_.get(), &to, &from, directive);
            if (ZSTD_isError(left) != 0) throw std::bad_alloc();
            sink(packed_.data(), to.pos);
        }
    }

    std::unique_ptr<ZSTD_CCtx, std::size_t (*)(ZSTD_CCtx*)> stream_;
    std::vector<Byte> packed_ = std::vector<Byte>(kPieceBytes);
};

}  // namespace

Compression compressionNamed(std::string_view fileName) {
    if (fileName.ends_with(".gz")) return Compression::kGzip;
    return fileName.ends_with(".zst") ? Compression::kZstd : Compression::kNone;
}

Compression compressionMarked(std::string_view bytes) {
    if (bytes.starts_with("\x1f\x8b\x08")) return Compression::kGzip;
    return bytes.starts_with("\x28\xb5\x2f\xfd") ? Compression::kZstd : Compression::kNone;
}

InputFile unpacked(Compression compression, InputFile input,
                   const std::filesystem::path& tempDirectory, Progress& progress) {
    if (compression == Compression::kNone) return input;
    SpoolFile plain(tempDirectory);
    if (compression == Compression::kGzip) unpackGzip(input, plain, progress);
    if (compression == Compression::kZstd) unpackZstd(input, plain, progress);
    return plain.takeAsInput(input.displayName());
}

std::unique_ptr<Packer> makePacker(Compression compression) {
    if (compression == Compression::kGzip) return std::make_unique<GzipPacker>();
    if (compression == Compression::kZstd) return std::make_unique<ZstdPacker>();
    return nullptr;
}

}  // namespace tvsort::tools
