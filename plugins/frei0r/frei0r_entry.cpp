// The frei0r entry points of one plugin, built once per effect with VANTYX_FREI0R_EFFECT set to
// the effect's name in the tool's table.

// frei0r.h declares the entry points without extern "C"; hosts look them up by their C names
// in a library built with hidden visibility.
#pragma GCC visibility push(default)
extern "C" {
#include <frei0r.h>
}
#pragma GCC visibility pop

#include <new>

#include "frei0r_instance.h"
#include "frei0r_params.h"

#ifndef VANTYX_FREI0R_EFFECT
#error "VANTYX_FREI0R_EFFECT names the effect this plugin carries"
#endif
#ifndef VANTYX_PLUGIN_VERSION_MAJOR
#define VANTYX_PLUGIN_VERSION_MAJOR 0
#define VANTYX_PLUGIN_VERSION_MINOR 0
#endif

namespace {

using VantyxFrei0r::ParamKind;
using VantyxFrei0r::PluginDesc;
using VantyxFrei0r::PluginInstance;

const PluginDesc& Desc() {
  static const PluginDesc desc = VantyxFrei0r::DescribePlugin(VANTYX_FREI0R_EFFECT);
  return desc;
}

PluginInstance* Instance(f0r_instance_t instance) { return static_cast<PluginInstance*>(instance); }

}  // namespace

// Engines belong to instances, so there is nothing to set up per process; melt also calls
// f0r_init again without an f0r_deinit in between.
int f0r_init() {
  if (Desc().effect) return 1;
  VantyxFrei0r::LogOnce(Desc().name + ": this library has no effect '" VANTYX_FREI0R_EFFECT "'");
  return 0;
}

void f0r_deinit() {}

void f0r_get_plugin_info(f0r_plugin_info_t* info) {
  if (!info) return;
  const PluginDesc& desc = Desc();
  info->name = desc.title.empty() ? desc.name.c_str() : desc.title.c_str();
  info->author = "Vantyx";
  info->plugin_type = F0R_PLUGIN_TYPE_FILTER;
  info->color_model = F0R_COLOR_MODEL_BGRA8888;
  info->frei0r_version = FREI0R_MAJOR_VERSION;
  info->major_version = VANTYX_PLUGIN_VERSION_MAJOR;
  info->minor_version = VANTYX_PLUGIN_VERSION_MINOR;
  info->num_params = int(desc.params.size());
  info->explanation = desc.effect ? desc.effect->summary : "";
}

void f0r_get_param_info(f0r_param_info_t* info, int param_index) {
  const PluginDesc& desc = Desc();
  if (!info || param_index < 0 || size_t(param_index) >= desc.params.size()) return;
  const VantyxFrei0r::PluginParam& param = desc.params[size_t(param_index)];
  info->name = desc.effect->options[param.option].name;
  info->type = param.kind == ParamKind::kBool     ? F0R_PARAM_BOOL
               : param.kind == ParamKind::kChoice ? F0R_PARAM_STRING
                                                  : F0R_PARAM_DOUBLE;
  info->explanation = param.explanation.c_str();
}

// No exception may reach a C host: an instance that cannot be made is null (hosts report
// that), a parameter that cannot be stored keeps its value.
f0r_instance_t f0r_construct(unsigned int width, unsigned int height) {
  if (!Desc().effect) return nullptr;
  try {
    return new PluginInstance(Desc(), width, height);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void f0r_destruct(f0r_instance_t instance) { delete Instance(instance); }

void f0r_set_param_value(f0r_instance_t instance, f0r_param_t param, int param_index) {
  try {
    if (instance) Instance(instance)->SetParam(param_index, param);
  } catch (const std::bad_alloc&) {
  }
}

void f0r_get_param_value(f0r_instance_t instance, f0r_param_t param, int param_index) {
  if (instance) Instance(instance)->GetParam(param_index, param);
}

void f0r_update(f0r_instance_t instance, double, const uint32_t* inframe, uint32_t* outframe) {
  if (instance) Instance(instance)->Update(inframe, outframe);
}

void f0r_update2(f0r_instance_t instance, double time, const uint32_t* inframe1, const uint32_t*,
                 const uint32_t*, uint32_t* outframe) {
  f0r_update(instance, time, inframe1, outframe);
}
