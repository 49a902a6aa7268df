// Pictures of a field: tundrel.render.
#include <filesystem>
#include <optional>
#include <unistd.h>

#include "common.h"

namespace tundrel::py_bind {

namespace {

std::vector<View> viewsOf(const py::object& views, std::optional<double> azimuth, std::optional<double> elevation,
                          double zoom) {
    if (!(zoom > 0.0)) throw py::value_error("zoom must be above 0");
    if (azimuth || elevation) {
        if (!views.is_none()) throw py::value_error("give either views or azimuth/elevation");
        if (elevation && !(*elevation >= -90.0 && *elevation <= 90.0))
            throw py::value_error("elevation must be between -90 and 90");
        return {View{"", azimuth.value_or(225.0), elevation.value_or(30.0), zoom}};
    }
    std::vector<std::string> names;
    if (views.is_none()) names = {"iso"};
    else if (py::isinstance<py::str>(views)) names = {views.cast<std::string>()};
    else names = views.cast<std::vector<std::string>>();
    std::vector<View> list;
    for (const std::string& n : names) {
        std::optional<View> v = View::named(n);
        if (!v) throw py::value_error("views: no view " + n + " (iso, top, bottom, left, right, front, back)");
        v->zoom = zoom;
        list.push_back(*v);
    }
    return list;
}

py::object render(py::object model, const std::string& field, std::optional<std::string> file, py::object views,
                  std::optional<double> azimuth, std::optional<double> elevation, double zoom,
                  std::pair<int, int> size, std::optional<std::pair<double, double>> range, const std::string& colormap,
                  std::optional<std::pair<std::string, std::string>> difference, bool transparent, int samples,
                  std::optional<std::string> title, std::optional<z::ambientFlow> flow) {
    PictureOptions o;
    if (difference) {
        if (!field.empty()) throw py::value_error("give either field or difference");
        o.field = difference->first;
        o.minus = difference->second;
    } else {
        if (field.empty()) throw py::value_error("field: the name of the field shown is needed");
        o.field = field;
    }
    o.views = viewsOf(views, azimuth, elevation, zoom);
    o.width = size.first;
    o.height = size.second;
    o.samples = samples;
    if (range) {
        o.low = range->first;
        o.high = range->second;
    }
    o.colormap = colormap;
    o.transparent = transparent;

    ScriptedHost host;
    Picture p;
    // The picture is made without the GIL; a library error becomes a Python
    // exception once it is held again.
    auto run = [&](auto&& make) {
        std::optional<arrayWorks::GenericError> error;
        {
            py::gil_scoped_release unlocked;
            HostScope scope(host);
            try {
                p = make();
            } catch (const arrayWorks::GenericError& e) {
                error = e;
            }
        }
        if (error) throw libraryError(*error, host.messages);
    };
    if (py::isinstance<FieldMasterD>(model)) {
        auto& fm = model.cast<FieldMasterD&>();
        const auto held = hold(fm);
        if (title || flow) {
            const z::ambientFlow f = flow.value_or(z::ambientFlow{});
            o.title = pictureTitle(title.value_or(""), f.Mach, f.alpha, f.beta);
        }
        run([&] { return renderPicture(fm, o); });
    } else {
        py::tuple pair = py::isinstance<region>(model) ? py::make_tuple(model, region_fe()) : model.cast<py::tuple>();
        if (pair.size() != 2) throw py::type_error("model: a FieldMaster, a region or a (region, region_fe) pair");
        const auto& reg = pair[0].cast<const region&>();
        const auto& reg_fe = pair[1].cast<const region_fe&>();
        const auto held = hold(reg, reg_fe);
        checkPatches(reg);
        checkFaces(reg_fe);
        if (title) o.title = *title;
        run([&] { return renderPicture(reg, reg_fe, o); });
    }
    if (!p) throw py::value_error(p.message);

    if (file) {
        SafeWriteResult w;
        {
            py::gil_scoped_release unlocked;
            w = writeFileSafely(*file, [&](const std::string& f) { return writePng(p.image, f); });
        }
        if (!w) throw py::value_error(w.message);
        return py::none();
    }
    const py::ssize_t channels = transparent ? 4 : 3;
    py::array_t<std::uint8_t> a({static_cast<py::ssize_t>(p.image.height), static_cast<py::ssize_t>(p.image.width),
                                 channels});
    std::uint8_t* out = a.mutable_data();
    const std::size_t pixels = static_cast<std::size_t>(p.image.width) * static_cast<std::size_t>(p.image.height);
    for (std::size_t k = 0; k < pixels; ++k)
        for (py::ssize_t c = 0; c < channels; ++c)
            out[k * static_cast<std::size_t>(channels) + static_cast<std::size_t>(c)] = p.image.pixels[4 * k + static_cast<std::size_t>(c)];
    return a;
}

}  // namespace

void bindRender(py::module_& m) {
    m.def("render", &render, py::arg("model"), py::arg("field") = "", py::arg("file") = py::none(),
          py::kw_only(), py::arg("views") = py::none(), py::arg("azimuth") = py::none(),
          py::arg("elevation") = py::none(), py::arg("zoom") = 1.0, py::arg("size") = std::pair{1200, 900},
          py::arg("range") = py::none(), py::arg("colormap") = "", py::arg("difference") = py::none(),
          py::arg("transparent") = false, py::arg("samples") = 2, py::arg("title") = py::none(),
          py::arg("flow") = py::none(),
          "A picture of a field on the model: `model` is a FieldMaster (title and flow give the title line), a "
          "region or a (region, region_fe) pair (the title line is the model's). Views by name (iso, top, bottom, "
          "left, right, front, back; a list lays them on one sheet) or by azimuth and elevation in degrees; size "
          "(width, height); range (low, high), default the field's; colormap viridis, magma, cividis, coolwarm "
          "(diverging); difference (A, B) shows A - B with the diverging map. Returns an (height, width, 3) uint8 "
          "array, (height, width, 4) when transparent, or writes the PNG `file` and returns None. Raises "
          "ValueError for a field that is not there or a bad parameter.");
}

}  // namespace tundrel::py_bind
