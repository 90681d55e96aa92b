#include "media.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <sight/frame/io.h>

#include "y4m.h"

namespace sight_host {

namespace R = Tamarind::Rasters;

namespace {

std::string av_text(int error) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(error, text, sizeof text);
  return text;
}

struct frame_deleter {
  void operator()(AVFrame *f) const { av_frame_free(&f); }
};
using frame_ptr = std::unique_ptr<AVFrame, frame_deleter>;

frame_ptr new_frame(AVPixelFormat format, int width, int height) {
  frame_ptr f(av_frame_alloc());
  if (!f) throw media_error("out of memory");
  f->format = format;
  f->width = width;
  f->height = height;
  if (av_frame_get_buffer(f.get(), 0) < 0) throw media_error("out of memory for a frame");
  return f;
}

// The libav format whose bytes are those of a layout; YCbCrA has none and
// goes through 4:4:4 planes, interleaved by hand.
AVPixelFormat packed_format(video::e_data_format f) {
  switch (f) {
    case video::format_bgra: return AV_PIX_FMT_BGRA;
    case video::format_ycbcra: return AV_PIX_FMT_YUV444P;
    case video::format_y_cbcr: return AV_PIX_FMT_NV12;
    case video::format_planar: return AV_PIX_FMT_YUV420P;
    default: return AV_PIX_FMT_UYVY422;
  }
}

// The planar format a layout is written to losslessly where it can be.
AVPixelFormat planar_format(video::e_data_format f) {
  switch (f) {
    case video::format_bgra:
    case video::format_ycbcra: return AV_PIX_FMT_YUV444P;
    case video::format_y_cbcr:
    case video::format_planar: return AV_PIX_FMT_YUV420P;
    default: return AV_PIX_FMT_YUV422P;
  }
}

template <class B>
void set_plane(B const &b, std::uint8_t *&data, int &linesize) {
  data = reinterpret_cast<std::uint8_t *>(b.data);
  linesize = b.stride;
}

void picture_planes(picture const &p, std::uint8_t *data[4], int linesize[4]) {
  switch (p.format) {
    case video::format_bgra: set_plane(p.bgra, data[0], linesize[0]); break;
    case video::format_y_cbcr:
      set_plane(p.y, data[0], linesize[0]);
      set_plane(p.cbcr, data[1], linesize[1]);
      break;
    case video::format_planar:
      set_plane(p.y, data[0], linesize[0]);
      set_plane(p.cb, data[1], linesize[1]);
      set_plane(p.cr, data[2], linesize[2]);
      break;
    default: set_plane(p.ycbcr, data[0], linesize[0]); break;
  }
}

// Format conversion (never scaling) between libav frames and pictures.
class converter {
 public:
  ~converter() { sws_freeContext(ctx_); }

  void to_picture(AVFrame const *f, picture &pic) {
    if (f->width <= 0 || f->height <= 0) throw media_error("frame without pixels");
    if (!pic.allocate(pic.format, f->width, f->height)) throw media_error("out of memory for a frame");
    std::uint8_t *data[4] = {};
    int linesize[4] = {};
    frame_ptr planes;
    if (pic.format == video::format_ycbcra) {
      planes = new_frame(AV_PIX_FMT_YUV444P, f->width, f->height);
      std::copy(planes->data, planes->data + 4, data);
      std::copy(planes->linesize, planes->linesize + 4, linesize);
    } else {
      picture_planes(pic, data, linesize);
    }
    convert(f->data, f->linesize, AVPixelFormat(f->format), f->width, f->height, data, linesize,
            packed_format(pic.format));
    if (planes) {
      for (int j = 0; j < f->height; ++j) {
        R::pixel_ycbcra_u8 *out = R::line(pic.ycbcra, j);
        for (int i = 0; i < f->width; ++i)
          out[i] = R::pixel_ycbcra_u8{planes->data[0][j * planes->linesize[0] + i],
                                      planes->data[1][j * planes->linesize[1] + i],
                                      planes->data[2][j * planes->linesize[2] + i], 255};
      }
    }
  }

  void from_picture(picture const &pic, AVFrame *f) {
    std::uint8_t *data[4] = {};
    int linesize[4] = {};
    frame_ptr planes;
    if (pic.format == video::format_ycbcra) {
      planes = new_frame(AV_PIX_FMT_YUV444P, pic.width, pic.height);
      for (int j = 0; j < pic.height; ++j) {
        R::pixel_ycbcra_u8 const *in = R::line(pic.ycbcra, j);
        for (int i = 0; i < pic.width; ++i) {
          planes->data[0][j * planes->linesize[0] + i] = in[i].y;
          planes->data[1][j * planes->linesize[1] + i] = in[i].cb;
          planes->data[2][j * planes->linesize[2] + i] = in[i].cr;
        }
      }
      std::copy(planes->data, planes->data + 4, data);
      std::copy(planes->linesize, planes->linesize + 4, linesize);
    } else {
      picture_planes(pic, data, linesize);
    }
    convert(data, linesize, packed_format(pic.format), pic.width, pic.height, f->data, f->linesize,
            AVPixelFormat(f->format));
  }

 private:
  void convert(std::uint8_t const *const *src, int const *src_lines, AVPixelFormat src_format, int width,
               int height, std::uint8_t *const *dst, int const *dst_lines, AVPixelFormat dst_format) {
    if (!sws_isSupportedInput(src_format))
      throw media_error(std::string("unsupported pixel format ") +
                        (av_get_pix_fmt_name(src_format) ? av_get_pix_fmt_name(src_format) : "(unknown)"));
    // Point sampling: the sizes never change, and conversions between
    // layouts of the same chroma siting stay exact.
    ctx_ = sws_getCachedContext(ctx_, width, height, src_format, width, height, dst_format,
                                SWS_POINT | SWS_ACCURATE_RND | SWS_BITEXACT, nullptr, nullptr, nullptr);
    if (ctx_ == nullptr) throw media_error("cannot convert this pixel format");
    sws_scale(ctx_, src, src_lines, 0, height, dst, dst_lines);
  }

  SwsContext *ctx_ = nullptr;
};

float display_aspect(int width, int height, AVRational sar, float forced) {
  if (forced > 0) return forced;
  if (sar.num <= 0 || sar.den <= 0) sar = AVRational{1, 1};
  return float(double(width) * sar.num / (double(height) * sar.den));
}

// Files through libavformat and libavcodec.
class file_source : public source {
 public:
  file_source(std::string const &name, float aspect) : aspect_(aspect) {
    int r = avformat_open_input(&format_, name.c_str(), nullptr, nullptr);
    if (r < 0 && !std::filesystem::exists(name)) throw media_error("no such file");
    if (r < 0) throw media_error("cannot open: " + av_text(r));
    if ((r = avformat_find_stream_info(format_, nullptr)) < 0)
      throw media_error("cannot read the stream: " + av_text(r));
    stream_ = av_find_best_stream(format_, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (stream_ < 0) throw media_error("no video stream");
    AVStream const *s = format_->streams[stream_];
    AVCodec const *codec = avcodec_find_decoder(s->codecpar->codec_id);
    if (codec == nullptr) throw media_error("no decoder for this video stream");
    decoder_ = avcodec_alloc_context3(codec);
    if (decoder_ == nullptr || avcodec_parameters_to_context(decoder_, s->codecpar) < 0)
      throw media_error("cannot set up the decoder");
    decoder_->thread_count = 0;  // as many threads as the decoder likes
    if ((r = avcodec_open2(decoder_, codec, nullptr)) < 0) throw media_error("cannot open the decoder: " + av_text(r));
    AVRational const rate = av_guess_frame_rate(format_, const_cast<AVStream *>(s), nullptr);
    rate_ = rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 25.0;
    total_ = s->nb_frames > 0 ? s->nb_frames
             : format_->duration > 0 ? std::int64_t(double(format_->duration) / AV_TIME_BASE * rate_ + 0.5)
                                     : 0;
    frame_.reset(av_frame_alloc());
    packet_ = av_packet_alloc();
    if (!frame_ || packet_ == nullptr) throw media_error("out of memory");
  }

  ~file_source() override {
    av_packet_free(&packet_);
    avcodec_free_context(&decoder_);
    avformat_close_input(&format_);
  }

  bool next(picture &pic, double &time) override {
    for (;;) {
      int r = avcodec_receive_frame(decoder_, frame_.get());
      if (r == 0) break;
      if (r == AVERROR_EOF) {
        if (decoded_ == 0) throw media_error("no video frame could be decoded");
        return false;
      }
      if (r != AVERROR(EAGAIN)) throw media_error("undecodable video: " + av_text(r));
      r = av_read_frame(format_, packet_);
      if (r == AVERROR_EOF) {
        avcodec_send_packet(decoder_, nullptr);
        continue;
      }
      if (r < 0) throw media_error("cannot read the file: " + av_text(r));
      if (packet_->stream_index == stream_) r = avcodec_send_packet(decoder_, packet_);
      av_packet_unref(packet_);
      if (r < 0 && r != AVERROR(EAGAIN) && r != AVERROR_INVALIDDATA) throw media_error("undecodable video: " + av_text(r));
    }
    AVStream const *s = format_->streams[stream_];
    std::int64_t const ts = frame_->best_effort_timestamp;
    std::int64_t const start = s->start_time != AV_NOPTS_VALUE ? s->start_time : 0;
    time = ts != AV_NOPTS_VALUE ? double(ts - start) * av_q2d(s->time_base) : double(decoded_) / rate_;
    conv_.to_picture(frame_.get(), pic);
    pic.aspect = display_aspect(frame_->width, frame_->height, frame_->sample_aspect_ratio, aspect_);
    av_frame_unref(frame_.get());
    ++decoded_;
    return true;
  }

  std::int64_t total() const override { return total_; }
  double rate() const override { return rate_; }

 private:
  float aspect_;
  AVFormatContext *format_ = nullptr;
  AVCodecContext *decoder_ = nullptr;
  AVPacket *packet_ = nullptr;
  frame_ptr frame_;
  int stream_ = -1;
  double rate_ = 25;
  std::int64_t total_ = 0, decoded_ = 0;
  converter conv_;
};

// A Y4M stream on standard input, read frame by frame as it arrives.
class y4m_source : public source {
 public:
  explicit y4m_source(float aspect)
      : reader_([](void *p, std::size_t n) { return std::fread(p, 1, n, stdin); }) {
    y4m_header const &h = reader_.header();
    static constexpr AVPixelFormat formats[] = {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUV444P,
                                                AV_PIX_FMT_YUVA444P, AV_PIX_FMT_GRAY8};
    frame_.reset(av_frame_alloc());
    if (!frame_) throw media_error("out of memory");
    frame_->format = formats[int(h.chroma)];
    frame_->width = h.width;
    frame_->height = h.height;
    aspect_ = display_aspect(h.width, h.height, AVRational{h.sar_num, h.sar_den}, aspect);
  }

  bool next(picture &pic, double &time) override {
    if (!reader_.next(bytes_)) return false;
    y4m_header const &h = reader_.header();
    std::uint8_t *p = bytes_.data();
    for (int i = 0; i < y4m_planes(h); ++i) {
      frame_->data[i] = p;
      frame_->linesize[i] = y4m_plane_width(h, i);
      p += std::size_t(y4m_plane_width(h, i)) * std::size_t(y4m_plane_height(h, i));
    }
    time = double(reader_.frames() - 1) * h.rate_den / h.rate_num;
    conv_.to_picture(frame_.get(), pic);
    pic.aspect = aspect_;
    return true;
  }

  std::int64_t total() const override { return 0; }
  double rate() const override { return double(reader_.header().rate_num) / reader_.header().rate_den; }

 private:
  y4m_reader reader_;
  std::vector<std::uint8_t> bytes_;
  frame_ptr frame_;
  float aspect_ = 0;
  converter conv_;
};

// The built-in clip, 640 x 360 at 25 frames a second: a card of the
// tracker's default key colour travels once round the unit circle (over the
// hot spots' default places) on a backdrop of the hot spots' default key,
// with two checkered areas for corners. In the middle third the frames are
// interlaced: the odd lines show the card half a frame later, so they comb.
class synthetic_source : public source {
 public:
  synthetic_source(int frames, float aspect) : frames_(frames), aspect_(aspect) {
    frame_ = new_frame(AV_PIX_FMT_YUV444P, kWidth, kHeight);
  }

  bool next(picture &pic, double &time) override {
    if (index_ == frames_) return false;
    bool const combed = index_ >= frames_ / 3 && index_ < 2 * frames_ / 3;
    float const unit = kHeight * 0.5f;
    for (int j = 0; j < kHeight; ++j) {
      float const t = float(index_) + (combed && j % 2 ? 0.5f : 0.0f);
      float const a = 6.2831853f * t / float(frames_);
      float const cx = std::sin(a), cy = std::cos(a), ca = std::cos(a * 0.5f), sa = std::sin(a * 0.5f);
      std::uint8_t *yl = frame_->data[0] + j * frame_->linesize[0];
      std::uint8_t *ul = frame_->data[1] + j * frame_->linesize[1];
      std::uint8_t *vl = frame_->data[2] + j * frame_->linesize[2];
      for (int i = 0; i < kWidth; ++i) {
        float const x = (float(i) + 0.5f - kWidth * 0.5f) / unit - cx;
        float const y = (float(j) + 0.5f - kHeight * 0.5f) / unit - cy;
        float const u = x * ca + y * sa, v = -x * sa + y * ca;
        bool const card = std::fabs(u) <= 0.22f && std::fabs(v) <= 0.14f;
        bool const textured = (i < 120 || i >= kWidth - 120) && (j < 100 || j >= kHeight - 100);
        std::uint8_t const *c = card ? kCard : kBackdrop;
        yl[i] = card || !textured ? c[0] : std::uint8_t(((i / 10 + j / 10) % 2) ? 180 : 40);
        ul[i] = c[1];
        vl[i] = c[2];
      }
    }
    conv_.to_picture(frame_.get(), pic);
    pic.aspect = aspect_ > 0 ? aspect_ : float(kWidth) / float(kHeight);
    time = double(index_++) / rate();
    return true;
  }

  std::int64_t total() const override { return frames_; }
  double rate() const override { return 25; }

 private:
  static constexpr int kWidth = 640, kHeight = 360;
  // Y, Cb, Cr of RGB (200, 137, 119) and (50, 90, 160) in BT.601 video range.
  static constexpr std::uint8_t kCard[3] = {148, 111, 157};
  static constexpr std::uint8_t kBackdrop[3] = {90, 165, 105};
  int frames_;
  float aspect_;
  int index_ = 0;
  frame_ptr frame_;
  converter conv_;
};

}  // namespace

std::unique_ptr<source> open_source(std::string const &name, float aspect, int synthetic_frames) {
  av_log_set_level(AV_LOG_QUIET);  // errors are reported once, by the host
  if (name.empty()) return std::make_unique<synthetic_source>(synthetic_frames, aspect);
  if (name == "-") {
    try {
      return std::make_unique<y4m_source>(aspect);
    } catch (y4m_error const &e) {
      throw media_error(e.what());
    }
  }
  return std::make_unique<file_source>(name, aspect);
}

struct writer::state {
  enum { png, y4m, encoded } kind = png;
  converter conv;
  frame_ptr frame;
  std::FILE *file = nullptr;
  AVFormatContext *format = nullptr;
  AVCodecContext *encoder = nullptr;
  AVStream *stream = nullptr;
  AVPacket *packet = nullptr;

  bool started = false;  // the header is written, so a trailer is due

  void drain() {
    for (;;) {
      int const r = avcodec_receive_packet(encoder, packet);
      if (r == AVERROR(EAGAIN) || r == AVERROR_EOF) return;
      if (r < 0) throw media_error("encoding failed: " + av_text(r));
      av_packet_rescale_ts(packet, encoder->time_base, stream->time_base);
      packet->stream_index = stream->index;
      int const w = av_interleaved_write_frame(format, packet);
      if (w < 0) throw media_error("cannot write the video: " + av_text(w));
    }
  }
};

writer::writer(std::string path, double rate) : path_(std::move(path)), rate_(rate) {}

writer::~writer() {
  try {
    close();
  } catch (media_error const &) {
    // The destructor runs after an error has been reported already.
  }
}

void writer::write(picture const &pic) {
  std::filesystem::path const path(path_);
  std::string ext = path.extension().string();
  for (char &c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
  if (!state_) {
    state_ = std::make_unique<state>();
    if (ext == ".png") {
      state_->frame = new_frame(AV_PIX_FMT_BGRA, pic.width, pic.height);
    } else if (ext == ".y4m") {
      state_->kind = state::y4m;
      AVPixelFormat const f = planar_format(pic.format);
      state_->frame = new_frame(f, pic.width, pic.height);
      state_->file = std::fopen(path_.c_str(), "wb");
      if (state_->file == nullptr) throw media_error("cannot create " + path_);
      AVRational const r = av_d2q(rate_, 1 << 20);
      std::fprintf(state_->file, "YUV4MPEG2 W%d H%d F%d:%d Ip A1:1 C%s\n", pic.width, pic.height, r.num, r.den,
                   f == AV_PIX_FMT_YUV444P ? "444" : f == AV_PIX_FMT_YUV420P ? "420jpeg" : "422");
    } else {
      state_->kind = state::encoded;
      state &s = *state_;
      int r = avformat_alloc_output_context2(&s.format, nullptr, nullptr, path_.c_str());
      if (r < 0 || s.format == nullptr) throw media_error("no video format for " + path_);
      AVCodec const *codec = avcodec_find_encoder(s.format->oformat->video_codec);
      if (codec == nullptr) throw media_error("no encoder for " + path_);
      s.encoder = avcodec_alloc_context3(codec);
      s.encoder->width = pic.width;
      s.encoder->height = pic.height;
      s.encoder->time_base = av_inv_q(av_d2q(rate_, 1 << 20));
      s.encoder->framerate = av_d2q(rate_, 1 << 20);
      s.encoder->pix_fmt = codec->pix_fmts != nullptr
                               ? avcodec_find_best_pix_fmt_of_list(codec->pix_fmts, planar_format(pic.format), 0, nullptr)
                               : planar_format(pic.format);
      if (s.format->oformat->flags & AVFMT_GLOBALHEADER) s.encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
      if ((r = avcodec_open2(s.encoder, codec, nullptr)) < 0)
        throw media_error("cannot open the encoder for " + path_ + ": " + av_text(r));
      s.stream = avformat_new_stream(s.format, nullptr);
      if (s.stream == nullptr || avcodec_parameters_from_context(s.stream->codecpar, s.encoder) < 0)
        throw media_error("cannot set up " + path_);
      s.stream->time_base = s.encoder->time_base;
      if (!(s.format->oformat->flags & AVFMT_NOFILE) && (r = avio_open(&s.format->pb, path_.c_str(), AVIO_FLAG_WRITE)) < 0)
        throw media_error("cannot create " + path_ + ": " + av_text(r));
      if ((r = avformat_write_header(s.format, nullptr)) < 0)
        throw media_error("cannot write " + path_ + ": " + av_text(r));
      s.started = true;
      s.packet = av_packet_alloc();
      s.frame = new_frame(s.encoder->pix_fmt, pic.width, pic.height);
    }
  }
  state &s = *state_;
  if (pic.width != s.frame->width || pic.height != s.frame->height)
    throw media_error("frame size changed while writing " + path_);
  if (av_frame_make_writable(s.frame.get()) < 0) throw media_error("out of memory");
  s.conv.from_picture(pic, s.frame.get());
  if (s.kind == state::png) {
    char number[16];
    std::snprintf(number, sizeof number, "_%06lld", static_cast<long long>(count_));
    std::filesystem::path const name = path.parent_path() / (path.stem().string() + number + ".png");
    R::bitmap<R::pixel_bgra_u8> view{};
    R::attach(view, reinterpret_cast<R::pixel_bgra_u8 *>(s.frame->data[0]), pic.width, pic.height,
              s.frame->linesize[0]);
    if (!R::io::write(name.wstring().c_str(), view)) throw media_error("cannot write " + name.string());
  } else if (s.kind == state::y4m) {
    bool ok = std::fputs("FRAME\n", s.file) >= 0;
    AVPixFmtDescriptor const *d = av_pix_fmt_desc_get(AVPixelFormat(s.frame->format));
    for (int i = 0; i < 3; ++i) {
      int const w = i ? AV_CEIL_RSHIFT(pic.width, d->log2_chroma_w) : pic.width;
      int const h = i ? AV_CEIL_RSHIFT(pic.height, d->log2_chroma_h) : pic.height;
      for (int j = 0; j < h; ++j)
        ok = ok && std::fwrite(s.frame->data[i] + j * s.frame->linesize[i], 1, w, s.file) == std::size_t(w);
    }
    if (!ok) throw media_error("cannot write " + path_);
  } else {
    s.frame->pts = count_;
    int const r = avcodec_send_frame(s.encoder, s.frame.get());
    if (r < 0) throw media_error("encoding failed: " + av_text(r));
    s.drain();
  }
  ++count_;
}

void writer::close() {
  if (!state_) return;
  std::unique_ptr<state> s = std::move(state_);
  bool ok = true;
  if (s->file != nullptr) ok = std::fclose(s->file) == 0;
  if (s->format != nullptr && s->started) {
    try {
      avcodec_send_frame(s->encoder, nullptr);
      s->drain();
      ok = av_write_trailer(s->format) == 0;
    } catch (media_error const &) {
      ok = false;
    }
  }
  if (s->format != nullptr) {
    if (!(s->format->oformat->flags & AVFMT_NOFILE)) avio_closep(&s->format->pb);
    avformat_free_context(s->format);
  }
  avcodec_free_context(&s->encoder);
  av_packet_free(&s->packet);
  if (!ok) throw media_error("cannot finish " + path_);
}

}  // namespace sight_host
