// The formats that there are, and the writer of the bare video.
#include "media/media_writer.h"

#include "media/av.h"
#include "media/container_writer.h"
#include "shared/exit_codes.h"

#include <algorithm>
#include <array>

namespace tool
{

namespace
{

const std::array<file_format, 5> formats = {{{"mp4", "mp4", zu::Codec::unknown},
                                             {"mkv", "matroska", zu::Codec::unknown},
                                             {"ts", "mpegts", zu::Codec::unknown},
                                             {"h264", "", zu::Codec::h264},
                                             {"h265", "", zu::Codec::h265}}};

// Access units as they came. Times are lost, and so is sound.
class bare_writer : public media_writer
{
public:
    explicit bare_writer(output_file& out) : out_(out)
    {
    }

    void video(const byte_string& unit, bool /*key*/, std::int64_t /*time*/) override
    {
        (void)out_.write(unit.data(), unit.size());
        out_.check();
    }

    void audio(const byte_string& /*samples*/, std::int64_t /*time*/) override
    {
    }

    void finish() override
    {
    }

private:
    output_file& out_;
};

} // namespace

const char* name_of(sound kind)
{
    switch (kind) {
    case sound::alaw:
        return "pcm_alaw";
    case sound::ulaw:
        return "pcm_mulaw";
    default:
        return "none";
    }
}

const char* file_format::takes_audio(sound kind) const
{
    if (library.empty()) {
        return "has no place for it; mkv has";
    }
    const AVCodecID id = kind == sound::alaw ? AV_CODEC_ID_PCM_ALAW : AV_CODEC_ID_PCM_MULAW;
    const AVOutputFormat* const container = av_guess_format(library.c_str(), nullptr, nullptr);
    const bool good =
        container != nullptr && avformat_query_codec(container, id, FF_COMPLIANCE_UNOFFICIAL) == 1;
    return good ? nullptr : "cannot carry G.711; mkv can";
}

const file_format* format_named(const std::string& name)
{
    const auto* const found = std::find_if(
        formats.begin(), formats.end(), [&](const file_format& each) { return each.name == name; });
    return found == formats.end() ? nullptr : found;
}

std::string format_names()
{
    return "mp4, mkv, ts, h264 or h265";
}

void check_fits(const file_format& how, const media_format& what)
{
    if (how.only != zu::Codec::unknown && how.only != what.video.codec) {
        const std::string sent = name_of(what.video.codec);
        throw failure(exit_code::output, "the camera sends " + sent + ", which is no " + how.name +
                                             "; give OUT." + sent + ", or .mkv for either");
    }
}

std::unique_ptr<media_writer> make_writer(const file_format& how, const media_format& what,
                                          output_file& out)
{
    if (!how.library.empty()) {
        return std::make_unique<container_writer>(how.library, what, out);
    }
    return std::make_unique<bare_writer>(out);
}

} // namespace tool
