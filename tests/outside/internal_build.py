# SPDX-License-Identifier: Apache-2.0
"""On a library built with LARKSPUR_INTERNAL_UI, a user default admits one more reserved type."""

import larkspur
from support import OutsideTest, main


class InternalBuildTest(OutsideTest):
    def test_a_default_admits_a_reserved_type(self):
        defaults = self.directory / "home/.config/larkspur/defaults.json"
        defaults.parent.mkdir(parents=True)
        self.scratch_allowed = 1  # The settings in the home directory.
        for text in ("[]", '{"allowLKSServiceType":"com.corvid.other"}'):
            defaults.write_text(text)
            with self.assertRaises(larkspur.ReservedServiceType):
                self.install(type="com.corvid.mine")
        defaults.write_text('{"allowLKSServiceType":"com.corvid.mine"}')
        self.install(type="com.corvid.mine")
        self.assertTrue((self.root / "com.corvid.mine").is_dir())


if __name__ == "__main__":
    main()
