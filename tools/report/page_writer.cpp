#include "report/page_writer.h"

#include <glib.h>
#include <zlib.h>

#include <memory>
#include <new>
#include <string>

#include "report/page_sources.h"

namespace trelvo {

namespace {

std::string Base64(std::string_view bytes) {
    const std::unique_ptr<gchar, decltype(&g_free)> text(
        g_base64_encode(reinterpret_cast<const guchar*>(bytes.data()), bytes.size()), &g_free);
    return text.get();
}

// As the page's own content security policy names a script or a style.
std::string HashOf(std::string_view source) {
    const std::unique_ptr<GChecksum, decltype(&g_checksum_free)> checksum(
        g_checksum_new(G_CHECKSUM_SHA256), &g_checksum_free);
    g_checksum_update(checksum.get(), reinterpret_cast<const guchar*>(source.data()),
                      static_cast<gssize>(source.size()));
    std::string digest(32, '\0');
    gsize size = digest.size();
    g_checksum_get_digest(checksum.get(), reinterpret_cast<guint8*>(digest.data()), &size);
    return "'sha256-" + Base64(digest) + "'";
}

// Raw, without a head or a checksum.
std::string Deflate(std::string_view data) {
    z_stream stream{};
    if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, -MAX_WBITS, MAX_MEM_LEVEL,
                     Z_DEFAULT_STRATEGY) != Z_OK) {
        throw std::bad_alloc();
    }
    std::string out(deflateBound(&stream, data.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
    stream.avail_in = static_cast<uInt>(data.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    deflate(&stream, Z_FINISH);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    return out;
}

// The text up to a mark of the page's source, {{NAME}}, which is taken away with it.
std::string_view TakeUpTo(std::string_view mark, std::string_view& rest) {
    const size_t end = rest.find(mark);
    const std::string_view text = rest.substr(0, end);
    rest.remove_prefix(end + mark.size());
    return text;
}

}  // namespace

PageWriter::PageWriter(std::ostream& out) : out_(out) {
    std::string_view page = page_sources::kPage;
    out_ << TakeUpTo("{{policy}}", page) << "default-src 'none'; script-src "
         << HashOf(page_sources::kScript) << "; style-src " << HashOf(page_sources::kStyle)
         << "; worker-src blob:; img-src data:; base-uri 'none'; form-action 'none'"
         << TakeUpTo("{{style}}", page) << page_sources::kStyle << TakeUpTo("{{data}}", page);
}

void PageWriter::AppendData(std::string_view id, std::string_view data) {
    out_ << "<script type=\"application/octet-stream\" id=\"" << id << "\">"
         << Base64(Deflate(data)) << "</script>\n";
}

void PageWriter::Add(const LogColumns::Block& block) {
    const std::string number = std::to_string(blocks_++);
    AppendData("columns-" + number, block.columns);
    AppendData("text-" + number, block.text);
}

void PageWriter::Finish(const nlohmann::ordered_json& head) {
    AppendData("head", head.dump());
    std::string_view page = page_sources::kPage;
    static_cast<void>(TakeUpTo("{{data}}", page));
    out_ << TakeUpTo("{{worker}}", page) << page_sources::kWorker << TakeUpTo("{{script}}", page)
         << page_sources::kScript << page;
}

}  // namespace trelvo
