#include "runner.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "vantyx.h"

namespace VantyxTool {

namespace {

void WriteField(std::vector<uint8_t>* record, int32_t offset, FieldType type, double value) {
  uint8_t* at = record->data() + offset;
  switch (type) {
    case FieldType::kF32: {
      const float v = float(value);
      std::memcpy(at, &v, sizeof(v));
      break;
    }
    case FieldType::kU32: {
      const uint32_t v = uint32_t(value);
      std::memcpy(at, &v, sizeof(v));
      break;
    }
    case FieldType::kI32: {
      const int32_t v = int32_t(value);
      std::memcpy(at, &v, sizeof(v));
      break;
    }
    case FieldType::kU8: *at = uint8_t(value); break;
  }
}

Vantyx::ImageDesc Desc(const void* data, uint32_t width, uint32_t height, uint32_t stride,
                       uint32_t channels, uint32_t format) {
  Vantyx::ImageDesc desc{};
  desc.data = const_cast<void*>(data);
  desc.width = width;
  desc.height = height;
  desc.stride = stride;
  desc.channels = channels;
  desc.format = format;
  return desc;
}

}  // namespace

const char* ResultMeaning(int32_t code) {
  switch (code) {
    case Vantyx::VX_OK: return "success";
    case Vantyx::VX_E_NOTIMPL: return "not implemented / unsupported";
    case Vantyx::VX_E_POINTER: return "null pointer";
    case Vantyx::VX_E_FAIL: return "failed";
    case Vantyx::VX_E_OUTOFMEMORY: return "out of memory";
    case Vantyx::VX_E_INVALIDARG: return "invalid argument";
    default: return "unknown error";
  }
}

std::string DescribeResult(int32_t code) {
  char text[96];
  std::snprintf(text, sizeof(text), "0x%08" PRIx32 " %s", uint32_t(code), ResultMeaning(code));
  return text;
}

std::vector<uint8_t> BuildParamRecord(const EffectSpec& effect, const FrameSettings& settings) {
  std::vector<uint8_t> record(settings.full_call ? effect.full_size : effect.basic_size, 0);
  for (size_t i = 0; i < effect.option_count; ++i) {
    const OptionSpec& option = effect.options[i];
    const int32_t offset = settings.full_call ? option.full_offset : option.basic_offset;
    if (offset >= 0) WriteField(&record, offset, option.type, settings.values[i]);
  }
  for (size_t i = 0; i < effect.fixed_count; ++i) {
    const FixedField& field = effect.fixed[i];
    const int32_t offset = settings.full_call ? field.full_offset : field.basic_offset;
    if (offset >= 0) WriteField(&record, offset, field.type, field.value);
  }
  return record;
}

EffectRunner::~EffectRunner() { Close(); }

bool EffectRunner::Open(const EffectSpec& effect, std::string* error) {
  Close();
  m_effect = &effect;
  CreateVantyxEngine(&m_engine);
  if (!m_engine) {
    *error = "could not create the Vantyx engine";
    return false;
  }
  const int32_t rc = m_engine->CreateEffect(&m_instance, effect.type);
  if (rc < 0 || !m_instance) {
    *error = std::string("could not create the ") + effect.title + " effect: " +
             DescribeResult(rc < 0 ? rc : int32_t(Vantyx::VX_E_NOTIMPL));
    Close();
    return false;
  }
  return true;
}

bool EffectRunner::SetImageSize(int32_t width, int32_t height, std::string* error) {
  const int32_t rc = m_effect->set_image_size(m_instance, width, height);
  if (rc < 0) {
    char text[64];
    std::snprintf(text, sizeof(text), "%dx%d", width, height);
    *error = std::string("the effect refused the frame size ") + text + ": " + DescribeResult(rc);
    return false;
  }
  m_width = width;
  m_height = height;
  return true;
}

int32_t RenderFrame(const EffectSpec& effect, void* instance, int32_t width, int32_t height,
                    const FrameSettings& settings, const FrameImages& images,
                    std::vector<uint8_t>* record) {
  *record = BuildParamRecord(effect, settings);
  const uint32_t w = uint32_t(width), h = uint32_t(height);
  const Vantyx::ImageDesc views[3] = {
      Desc(images.src, w, h, images.src_stride, 4, Vantyx::PIXEL_BGRA32),
      images.mask ? Desc(images.mask, w, h, images.mask_stride, 1, Vantyx::PIXEL_GRAY8)
                  : Vantyx::ImageDesc{},
      Desc(images.dst, settings.rect.Width(), settings.rect.Height(), images.dst_stride, 4,
           Vantyx::PIXEL_BGRA32)};
  std::memcpy(record->data(), views, sizeof(views));
  const Vantyx::ProcessRect rect{settings.rect.left, settings.rect.top, settings.rect.right,
                                 settings.rect.bottom};
  std::memcpy(record->data() + (settings.full_call ? effect.full_rect_offset
                                                   : effect.basic_rect_offset),
              &rect, sizeof(rect));
  return settings.full_call ? effect.process_full(instance, record->data())
                            : effect.process(instance, record->data());
}

bool EffectRunner::Render(const FrameSettings& settings, const uint8_t* src,
                          const uint8_t* mask, uint8_t* dst, std::string* error) {
  const size_t row_bytes = size_t(settings.rect.Width()) * 4;
  for (uint32_t y = settings.rect.top; y < settings.rect.bottom; ++y) {
    std::memcpy(dst + size_t(y - settings.rect.top) * row_bytes,
                src + (size_t(y) * uint32_t(m_width) + settings.rect.left) * 4, row_bytes);
  }
  FrameImages images;
  images.src = src;
  images.src_stride = uint32_t(m_width) * 4;
  images.mask = mask;
  images.mask_stride = uint32_t(m_width);
  images.dst = dst;
  images.dst_stride = settings.rect.Width() * 4;
  const int32_t rc = RenderFrame(*m_effect, m_instance, m_width, m_height, settings, images,
                                 &m_record);
  if (rc < 0) {
    *error = std::string(m_effect->title) + (settings.full_call ? " full call" : " call") +
             " failed: " + DescribeResult(rc);
    return false;
  }
  return true;
}

void EffectRunner::Close() {
  if (m_engine) {
    if (m_instance) m_engine->DeleteEffect(&m_instance, m_effect->type);
    DeleteVantyxEngine(&m_engine);
  }
  m_instance = nullptr;
  m_engine = nullptr;
  m_record.clear();
}

}  // namespace VantyxTool
