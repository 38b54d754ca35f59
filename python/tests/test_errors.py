"""Failures raise tavrin.Error with the library's log line; C++ exceptions map to Python ones."""
import logging

import pytest
import tavrin


def test_failures_raise_the_library_line(tmp_path):
    dev = tavrin.PhoXiDevice()
    missing = str(tmp_path / "missing.ply")
    cases = [
        (lambda: dev.connect("NOPE", type="device"), "PhoXiDevice",
         "PhoXiDevice: PhoXi error: Device 'NOPE' not detected by PhoXi Control."),
        (lambda: dev.get_scan(), "GetScan", "GetScan: Can not acquire scan. Capture the scene first."),
        (lambda: dev.mode, "tavrin::PhoXiDevice::GetMode",
         "tavrin::PhoXiDevice::GetMode: Can not obtain mode of PhoXi device. Device is not connected."),
        (lambda: tavrin.import_pho_ply(missing), "tavrin::ImportPhoPly",
         f'tavrin::ImportPhoPly: Can not import scan file "{missing}". File does not exist.'),
        (lambda: tavrin.export_scan(tmp_path / "a.xyz", tavrin.Scan()), "tavrin::ExportScan", None),
    ]
    for call, component, text in cases:
        with pytest.raises(tavrin.Error) as raised:
            call()
        assert isinstance(raised.value, RuntimeError)
        assert raised.value.component == component
        if text is not None:
            assert str(raised.value) == text
        assert str(raised.value) == f"{component}: {raised.value.lines[0][2]}"


def test_simulated_faults_raise_errors(device):
    sim, scanner = tavrin.sim, tavrin.sim.DEFAULT_SCANNER_ID
    sim.fail_next_triggers(scanner)
    with pytest.raises(tavrin.Error, match="^PhoXiDevice: Frame capture was unsuccessful.$"):
        device.capture_scan()
    sim.throw_on_device_calls(scanner)  # the PhoXi API's own exception, let through by the library
    with pytest.raises(tavrin.Error, match="communication with device 'TVR-SIM-0001' failed"):
        device.capture_scan()
    sim.throw_on_device_calls(scanner, False)
    assert len(device.capture_scan()) > 0


def test_cpp_exceptions_map_to_python_ones(tmp_path):
    odd = tavrin.SpaceDefinition(units=tavrin.Units(42))  # no row in the unit table
    with pytest.raises(IndexError):
        odd.correction_to(tavrin.ZELK_CAMERA)
    quads = tmp_path / "quads.ply"
    quads.write_text("ply\nformat ascii 1.0\nelement vertex 4\nproperty float x\nproperty float y\n"
                     "property float z\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n"
                     "0 0 0\n1 0 0\n1 1 0\n0 1 0\n4 0 1 2 3\n")
    with pytest.raises(ValueError, match="Non triangular meshes not supported"):
        tavrin.read_pho_ply(quads)
    with pytest.raises(ValueError, match="five distortion"):
        tavrin.camera_params(tavrin.CalibrationSettings())


def test_other_lines_go_to_logging_and_the_raised_one_does_not(caplog):
    caplog.set_level(logging.INFO, logger="tavrin")
    dev = tavrin.PhoXiDevice()
    dev.disconnect()  # succeeds, with a warning
    with pytest.raises(tavrin.Error):
        dev.capture()
    messages = [(r.levelno, r.getMessage()) for r in caplog.records if r.name == "tavrin"]
    assert messages == [(logging.WARNING, "PhoXiDevice: Trying to disconnect a device which is not connected.")]
