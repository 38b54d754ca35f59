"""Scans as NumPy arrays: shapes, zero copy, lifetimes, files."""
import gc

import numpy as np
import pytest
import tavrin


def test_colour_capture_to_numpy_and_back_through_files(tmp_path):
    with tavrin.PhoXiDevice() as dev:
        dev.connect(tavrin.sim.COLOR_SCANNER_ID)
        dev.enable_normals()
        scan = dev.capture_scan()
    assert not dev.is_connected  # the with block disconnected
    n = len(scan)
    assert scan.resolution == (1120, 800) and 0 < n < 1120 * 800
    for name, shape, dtype in [("positions", (n, 3), np.float32), ("normals", (n, 3), np.float32),
                               ("colors", (n, 3), np.float32), ("intensities", (n,), np.float32),
                               ("cells", (n, 2), np.uint32)]:
        array = getattr(scan, name)
        assert (array.shape, array.dtype) == (shape, dtype), name

    grid = scan.to_grid()
    x, y = scan.cells[:, 0], scan.cells[:, 1]
    np.testing.assert_array_equal(grid[y, x], scan.positions)
    assert np.isnan(grid).all(axis=2).sum() == 1120 * 800 - n

    tavrin.export_scan(tmp_path / "s.zelk", scan)
    tavrin.export_scan(tmp_path / "s.ply", scan)  # auto: the scan's colours
    exact = tavrin.import_scan(tmp_path / "s.zelk")
    np.testing.assert_array_equal(exact.positions, scan.positions)
    np.testing.assert_array_equal(exact.cells, scan.cells)
    assert tavrin.is_photoneo_ply(tmp_path / "s.ply")
    ply = tavrin.import_scan(tmp_path / "s.ply")
    np.testing.assert_allclose(ply.positions, scan.positions, atol=1e-3)
    cloud = tavrin.read_pho_ply(tmp_path / "s.ply")
    assert cloud.points.shape == (800, 1120, 3) and cloud.texture.dtype == np.uint8
    np.testing.assert_allclose(cloud.points[y, x], scan.positions, atol=1e-3)
    # File colours are blue, green, red; the scan's are red, green, blue in 0..1.
    np.testing.assert_allclose(cloud.texture[y, x][:, ::-1] / 255.0, scan.colors, atol=0.5 / 255)


def test_arrays_view_the_scan_without_copies(device, tmp_path):
    scan = device.capture_scan()
    for name in ("positions", "intensities", "cells"):
        array = getattr(scan, name)
        assert array.base is scan
        assert array.__array_interface__["data"][0] == array.ctypes.data == scan._address(name), name
    first, again = scan.positions, scan.positions
    assert np.shares_memory(first, again)

    first[0] = (1.0, 2.0, 3.0)
    scan.intensities[0] = 0.5
    assert tuple(scan.positions[0]) == (1.0, 2.0, 3.0)
    tavrin.export_scan(tmp_path / "w.zelk", scan)  # the library sees the writes
    back = tavrin.import_scan(tmp_path / "w.zelk")
    assert tuple(back.positions[0]) == (1.0, 2.0, 3.0) and back.intensities[0] == 0.5

    with pytest.raises(ValueError):
        scan.cells[0, 0] = 7  # the grid cells are read-only
    assert scan.to_grid().base is None  # to_grid copies


def test_array_outlives_every_name_of_its_scan(device):
    positions = device.capture_scan().positions  # no name ever holds the scan
    expected = positions.copy()
    gc.collect()
    # Freed, the scan's memory would be unmapped, or reused by this capture
    # of another scanner (other points).
    with tavrin.PhoXiDevice() as other:
        other.connect(tavrin.sim.COLOR_SCANNER_ID)
        assert len(other.capture_scan()) != len(expected)
    assert isinstance(positions.base, tavrin.Scan)
    np.testing.assert_array_equal(positions, expected)


def test_accept_box_in_cpp_and_python_callable_keep_the_same_points(device):
    box = np.array([[-200, -200, 0], [200, 200, 2000]], dtype=np.float32)
    boxed = device.capture_scan(accept=tavrin.Box(min=box[0], max=box[1]))
    as_array = device.capture_scan(accept=box)
    called = device.capture_scan(accept=lambda x, y, z: -200 <= x <= 200 and -200 <= y <= 200 and 0 <= z <= 2000)
    assert 0 < len(boxed) < len(device.capture_scan())
    np.testing.assert_array_equal(boxed.positions, called.positions)
    np.testing.assert_array_equal(boxed.positions, as_array.positions)
    assert ((boxed.positions >= box[0]) & (boxed.positions <= box[1])).all()

    with pytest.raises(ZeroDivisionError):
        device.capture_scan(accept=lambda x, y, z: 1 / 0)
    with pytest.raises(TypeError):
        device.capture_scan(accept="everything")
