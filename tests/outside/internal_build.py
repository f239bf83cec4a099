# SPDX-License-Identifier: Apache-2.0
# On a library built with LARKSPUR_INTERNAL_UI, which ctest does not have, a user default admits one
# more reserved type. `.ci/run` runs this.

import larkspur
from support import OutsideTest


class InternalBuildTest(OutsideTest):
    scratch_allowed = 1  # The settings in the home directory.

    def test_a_default_admits_a_reserved_type(self):
        defaults = self.directory / "home/.config/larkspur/defaults.json"
        defaults.parent.mkdir(parents=True)
        defaults.write_text('{"allowLKSServiceType":"com.corvid.mine"}')
        self.install(type="com.corvid.mine")
        with self.assertRaises(larkspur.ReservedServiceType):
            self.install(type="com.corvid.other")
