@
    function set_rotation(r) { t.rotation = new SFRotation(0, 1, 0, r[3] * 2); }