"""What the binding refuses before the library would take it wrongly: frames of another
shape or order, layouts the model cannot take, and files that are not there or headers
the library cannot read, each with a message that says why."""

import inspect

import numpy as np
import pytest

import zelk

WIDTH, BANDS = 8, 4


def write_scan(directory, name, counts):
    """An ENVI scan of uint16 counts, lines x bands x width (BIL), as NAME.hdr and NAME.bin."""
    lines, bands, width = counts.shape
    (directory / f"{name}.hdr").write_text(
        f"ENVI\nsamples = {width}\nlines = {lines}\nbands = {bands}\nheader offset = 0\n"
        "file type = ENVI Standard\ndata type = 12\ninterleave = bil\nbyte order = 0\n"
    )
    counts.astype("<u2").tofile(directory / f"{name}.bin")


def test_frames_must_have_the_shape_of_the_layout(linescan):
    leaf = np.zeros((BANDS, WIDTH), np.float32)
    leaf[1, 2] = 10
    with zelk.Handle() as h:
        h.load_model(linescan)
        with h.acquisition():
            # Flat, the samples would be read band after band whatever their order.
            with pytest.raises(ValueError, match=r"a BIL frame \(layout 2\) is bands x width: expected an array of shape \(4, 8\), got shape \(32,\)"):
                h.process_frame(leaf.T.ravel())
            with pytest.raises(ValueError, match="got shape"):
                h.process_frame(leaf[np.newaxis])
            h.process_frame(leaf)
            assert h.frame_decisions().tolist() == [0, 0, 1, 0, 0, 0, 0, 0]
        h.set_input_data_layout(1)
        with h.acquisition():
            with pytest.raises(ValueError, match=r"a BIP frame \(layout 1\) is width x bands"):
                h.process_frame(leaf)


def test_layouts_the_model_cannot_take_are_refused_when_set(write_model, snapshot, tmp_path):
    with zelk.Handle() as h:
        h.load_model(write_model("--references"))
        with pytest.raises(ValueError, match="layout 3 .* is for snapshot cubes; frames of this line-scan model take layout 1 .* or 2"):
            h.set_input_data_layout(3)
        assert h.input_data_layout == 2  # unchanged

        # References correct BIL frames only, whichever comes first.
        white = np.full((4, BANDS, WIDTH), 4000)
        write_scan(tmp_path, "whiteReference", white)
        write_scan(tmp_path, "darkReference", white // 40)
        h.set_input_data_layout(1)
        with pytest.raises(ValueError, match=r"references correct frames band after band only.*set_input_data_layout\(2\)"):
            h.load_correction(tmp_path)
        h.set_input_data_layout(2)
        h.load_correction(tmp_path)
        with h.acquisition():
            h.process_frame(np.full((BANDS, WIDTH), 2000, np.uint16))
        with pytest.raises(ValueError, match="references are loaded, and they correct frames in layout 2 .* only"):
            h.set_input_data_layout(1)

        # A snapshot model takes cubes in any of the three.
        h.load_model(snapshot)
        h.set_input_data_layout(3)


def test_unreadable_wavelength_headers_are_explained(tmp_path):
    header = "ENVI\nsamples = 8\nlines = 1\nbands = 3\n"
    cases = {
        "no_wavelength": (header, "has no 'wavelength' list"),
        "no_bands": ("ENVI\nsamples = 8\nwavelength = {900, 1000, 1100}\n", "has no 'bands' field"),
        "no_samples": ("ENVI\nbands = 3\nwavelength = {900, 1000, 1100}\n", "has no 'samples' field"),
        "exponent": (header + "wavelength = {9e2, 1000, 1100}\n", "holds '9e2': .* without a sign or an exponent"),
        "sign": (header + "wavelength = {+900, 1000, 1100}\n", "holds '\\+900'"),
        "short": (header + "wavelength = {900, 1000}\n", "has 2 values for 3 bands"),
    }
    with zelk.Handle() as h:
        for name, (text, message) in cases.items():
            path = tmp_path / f"{name}.hdr"
            path.write_text(text)
            with pytest.raises(zelk.ZelkError, match=message) as e:
                h.set_device_wavelengths_from_envi_header(path)
            assert e.value.code == -1, name
        (tmp_path / "good.hdr").write_text(header + "wavelength = {900, 1000, 1100}\n")
        h.set_device_wavelengths_from_envi_header(tmp_path / "good.hdr")


def test_missing_files_are_file_not_found_errors(tmp_path):
    with zelk.Handle() as h:
        for call in (h.load_model, h.set_device_wavelengths_from_envi_header, h.load_correction):
            with pytest.raises(FileNotFoundError) as e:
                call(tmp_path / "missing")
            assert isinstance(e.value, zelk.ZelkError)
            assert e.value.filename == str(tmp_path / "missing")
            assert "missing" in str(e.value)
        with pytest.raises(zelk.ZelkFileNotFoundError) as e:
            h.load_model(tmp_path / "missing.zelk")
        assert e.value.code == -113 == h.error_code and e.value.message == h.error_message


def test_every_public_member_is_documented():
    assert zelk.__version__.split(".")[:2] == zelk.version().split()[0].split(".")
    assert zelk.__doc__
    undocumented = []
    for name in zelk.__all__:
        value = getattr(zelk, name)
        if callable(value) and not inspect.getdoc(value):
            undocumented.append(name)
        if inspect.isclass(value):
            for member, attribute in vars(value).items():
                if not member.startswith("_") and not inspect.getdoc(getattr(value, member)):
                    undocumented.append(f"{name}.{member}")
    assert undocumented == []
