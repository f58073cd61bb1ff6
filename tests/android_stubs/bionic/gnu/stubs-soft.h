// SPDX-License-Identifier: Apache-2.0

// Nothing of what this lists for such processors matters here.
