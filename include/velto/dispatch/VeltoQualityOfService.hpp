// VeltoQualityOfService: the urgency class a dispatch queue is created with.
//
//   auto queue = VeltoDispatchQueue::createSerial("com.example.cache", VeltoQualityOfService::utility);
//   VeltoDispatchQueue::global(VeltoQualityOfService::userInitiated)->async([] { ... });
#pragma once

#include <boost/describe/enum.hpp>

/// Urgency classes, most urgent first. One worker pool serves every class: the class is kept
/// and reported, but it does not change scheduling (no class can starve another).
enum class VeltoQualityOfService {
  userInteractive,
  userInitiated,
  default_,  // printed as "default"
  utility,
  background,
  unspecified,
};
BOOST_DESCRIBE_ENUM(VeltoQualityOfService, userInteractive, userInitiated, default_, utility, background, unspecified)
