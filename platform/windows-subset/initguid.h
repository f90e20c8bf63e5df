// Empty: in this subset, ids are inline constants, so none needs to be instantiated.
#pragma once
