// tavo_util.Image: an image that does not change.
#pragma once

#include <pybind11/pybind11.h>

#include <memory>
#include <string>
#include <vector>

#include "tavo/service/imageFile.h"

namespace binding {

namespace py = pybind11;

class PyImage {
public:
    explicit PyImage(tavo::Image image) : image_(std::move(image)) {}
    PyImage(std::shared_ptr<const tavo::ImageFile> file, std::string name, std::string options)
        : image_(file->image), file_(std::move(file)), name_(std::move(name)), options_(std::move(options)) {}

    const tavo::Image& image() const { return image_; }
    const tavo::ImageFile* file() const { return file_.get(); }  ///< null: not read from one
    const std::string& name() const { return name_; }
    /// What a command line that reads it again has beside the name.
    const std::string& options() const { return options_; }
    /// Its bytes side by side from the first to the last, FF in the gaps. Made once, on the first call.
    const std::vector<unsigned char>& flat();

private:
    tavo::Image image_;
    std::shared_ptr<const tavo::ImageFile> file_;
    std::string name_;
    std::string options_;
    std::vector<unsigned char> flat_;
};

void defineImage(py::module_& module);

}  // namespace binding
