// Here the ids are inline constants of the headers that declare them: nothing to instantiate.
#pragma once
