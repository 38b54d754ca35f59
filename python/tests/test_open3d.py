"""scan.positions goes straight into Open3D (where python3-open3d is installed)."""
import numpy as np
import pytest

o3d = pytest.importorskip("open3d")


def test_positions_become_an_open3d_point_cloud(device):
    scan = device.capture_scan()
    cloud = o3d.geometry.PointCloud(o3d.utility.Vector3dVector(scan.positions.astype(np.float64)))
    assert len(cloud.points) == len(scan)
    np.testing.assert_allclose(cloud.get_min_bound(), scan.positions.min(axis=0), rtol=1e-6)
    np.testing.assert_allclose(cloud.get_max_bound(), scan.positions.max(axis=0), rtol=1e-6)
