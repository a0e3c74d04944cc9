#include "host/simulator/templates.h"

#include <algorithm>
#include <string>
#include <utility>

#include "host/simulator/process_plan.h"

namespace host::simulator {

namespace {

// How deep templates may take others, and how many a process may take over in all.
constexpr size_t kMostInside = 32;
constexpr size_t kMostLayers = 64;

}  // namespace

Templates::Templates(Loading &loading, const Field &field) {
  if (!field) return;
  if (field.asTable() == nullptr) field.fail("a table of tables");
  tables_.emplace(field);
  for (const std::string_view name : tables_->keys()) {
    TableReader reader(tables_->peek(name));
    layersOf(reader);
    readPlan(loading, reader, PlanOf::kTemplate, 1);
    reader.finish();
  }
}

std::vector<std::unique_ptr<TableReader>> Templates::layersOf(TableReader &own) const {
  std::vector<std::unique_ptr<TableReader>> layers;
  std::vector<std::string_view> inside;
  addLayers(own.findOwn("template"), inside, layers);
  return layers;
}

void Templates::addLayers(const Field &field, std::vector<std::string_view> &inside,
                          std::vector<std::unique_ptr<TableReader>> &layers) const {
  if (!field) return;
  for (const Field &named : field.isArray() ? field.elements() : std::vector<Field>{field}) {
    const std::string *name = named.as<std::string>();
    if (name == nullptr) named.fail("the name of a template, or an array of names");
    const Field table = tables_ ? tables_->peek(*name) : Field();
    if (!table) named.fail("no template is called " + quoted(*name), "one that the file has");
    if (std::find(inside.begin(), inside.end(), *name) != inside.end()) {
      named.fail("the template " + quoted(*name) + " takes over itself", "another template");
    }
    if (inside.size() == kMostInside || layers.size() == kMostLayers) {
      named.fail("takes over too many templates", "at most 64, and 32 within one another");
    }
    auto layer = std::make_unique<TableReader>(table);
    inside.push_back(*name);
    addLayers(layer->findOwn("template"), inside, layers);
    inside.pop_back();
    layers.push_back(std::move(layer));
  }
}

}  // namespace host::simulator
